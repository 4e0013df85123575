#pragma once

#include <tarvik/Value.h>

#include <openssl/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarvik {

struct CertificateDeleter {
    void operator()(X509* certificate) const;
};
// One owned reference to an OpenSSL certificate.
using CertificateRef = std::unique_ptr<X509, CertificateDeleter>;
// Takes a reference of its own on `certificate` (which the caller keeps).
CertificateRef retainCertificate(X509* certificate);

// What verifying a server's chain found.
struct TrustEvaluation {
    // The chain leads to a trusted root, every certificate is valid now, and the server's
    // certificate names the host.
    bool trusted = false;
    // X509_V_OK, or OpenSSL's reason for rejecting the chain.
    int error = 0;
    // The verified chain, the server's certificate first and the trusted root last; empty
    // unless trusted.
    std::vector<CertificateRef> chain;
};

// A server's certificate chain as the TLS handshake presented it, with the host name the
// connection was made for: what the pinning code decides on. Chains are verified against the
// runtime's TrustStore unless anchor certificates are set.
class ServerTrust {
  public:
    // `chain` holds the server's certificate first, then the certificates the server sent to
    // lead to a root.
    ServerTrust(std::vector<CertificateRef> chain, std::string hostname);

    // The peer chain of a handshake in progress, as OpenSSL hands it to a certificate
    // verification callback (SSL_CTX_set_cert_verify_callback): its certificate to verify and
    // the untrusted certificates the peer sent. None when the context has no certificate.
    static std::optional<ServerTrust> fromStoreContext(X509_STORE_CTX* context,
                                                       std::string hostname);

    const std::string& hostname() const { return hostname_; }
    std::size_t certificateCount() const { return chain_.size(); }
    X509* certificateAtIndex(std::size_t index) const { return chain_.at(index).get(); }

    // Trusts these roots only, instead of the runtime's trust store.
    void setAnchorCertificates(std::vector<CertificateRef> anchors);

    // Verifies the chain, as a TLS client verifies a server's, at the current time. None when
    // the verification itself cannot run (no host name, no store, OpenSSL failure).
    std::optional<TrustEvaluation> evaluate() const;

  private:
    std::vector<CertificateRef> chain_;
    std::string hostname_;
    std::optional<std::vector<CertificateRef>> anchors_;
};

}  // namespace tarvik
