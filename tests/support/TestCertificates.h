#pragma once

#include "Platform/ServerTrust.h"

#include <openssl/types.h>

#include <string>

namespace tarvik::testsupport {

// A small certificate authority made with OpenSSL when a test first needs it: an RSA 2048
// root, an EC P-384 intermediate signed by it, and server certificates signed by the
// intermediate. Keys take a moment to generate, so each is made once per test process.
enum class KeyKind { Rsa2048, Rsa4096, EcP256 };

inline const std::string testHostname = "api.example.test";

X509* rootCertificate();
X509* intermediateCertificate();
// Valid now, for testHostname, with a key of the given kind.
X509* leafCertificate(KeyKind kind);
// Like the RSA 2048 leaf, but its validity ended a day ago.
X509* expiredLeafCertificate();
// Like the RSA 2048 leaf, but signed by its own key.
X509* selfSignedLeafCertificate();
// Like the RSA 2048 leaf, but for any host name; made anew on each call.
CertificateRef leafCertificateFor(const std::string& hostname);

// What a server sends (its certificate, then the intermediate), trusting the test root only.
ServerTrust trustFor(X509* leaf, const std::string& hostname = testHostname);

}  // namespace tarvik::testsupport
