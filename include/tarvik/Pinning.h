#pragma once

#include <string>
#include <vector>

// The public keys the SDK accepts from its API servers, and the certificate authorities their
// chains are verified against. Configure both before starting the SDK.
namespace tarvik {

// Replaces the built-in pinning policy: connections to `domain` and to every host name ending
// in it must present a chain that verifies and holds one of the pinned keys. Each pin is the
// standard base64 text (44 characters) of a SHA-256 digest of a key's SubjectPublicKeyInfo,
// computed with the RSA 2048 header before the key bits; for an RSA 2048 key that is the
// digest of its usual DER SubjectPublicKeyInfo:
//   openssl x509 -in server.pem -pubkey -noout | openssl pkey -pubin -outform der |
//       openssl dgst -sha256 -binary | base64
// The default domain is "tarvikhq.com", the registrable domain of the default API host, and
// its default pins are placeholders that no key matches: a host must configure its service's
// pins, or every connection to the default domain is refused. Returns false, and changes
// nothing, when a pin is not the base64 text of a 32-byte digest.
bool setPinnedDomain(const std::string& domain, const std::vector<std::string>& base64Pins);

// The certificate authorities that server chains are verified against: a PEM bundle file, a
// folder of hashed certificates (as c_rehash makes), or both. With both empty, the default:
// the system's default verify paths.
void setTrustedCertificateAuthorities(const std::string& bundleFile,
                                      const std::string& folder = "");

}  // namespace tarvik
