#include "Platform/ServerTrust.h"

#include <mutex>

#include "Platform/TrustStore.h"

#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <arpa/inet.h>

namespace tarvik {
namespace {

struct StoreContextDeleter {
    void operator()(X509_STORE_CTX* context) const { X509_STORE_CTX_free(context); }
};
// Frees the stack only; the certificates in it are owned elsewhere.
struct CertificateStackDeleter {
    void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
};
using CertificateStack = std::unique_ptr<STACK_OF(X509), CertificateStackDeleter>;

X509StoreRef storeWithAnchors(const std::vector<CertificateRef>& anchors) {
    X509StoreRef store(X509_STORE_new());
    if (!store) {
        return nullptr;
    }
    for (const CertificateRef& anchor : anchors) {
        if (!X509_STORE_add_cert(store.get(), anchor.get())) {
            return nullptr;
        }
    }
    return store;
}

// Takes over the references that X509_STORE_CTX_get1_chain hands out.
std::vector<CertificateRef> adoptChain(STACK_OF(X509) * chain) {
    std::vector<CertificateRef> certificates;
    for (int i = 0; chain && i < sk_X509_num(chain); ++i) {
        certificates.emplace_back(sk_X509_value(chain, i));
    }
    sk_X509_free(chain);
    return certificates;
}

bool isIpAddress(const std::string& text) {
    unsigned char address[sizeof(in6_addr)];
    return inet_pton(AF_INET, text.c_str(), address) == 1 ||
           inet_pton(AF_INET6, text.c_str(), address) == 1;
}

// A connection made to an IP address is checked against the certificate's IP address names,
// which the host-name check does not read.
bool expectServerName(X509_STORE_CTX* context, const std::string& hostname) {
    X509_VERIFY_PARAM* parameters = X509_STORE_CTX_get0_param(context);
    return isIpAddress(hostname)
               ? X509_VERIFY_PARAM_set1_ip_asc(parameters, hostname.c_str()) == 1
               : X509_VERIFY_PARAM_set1_host(parameters, hostname.data(), hostname.size()) == 1;
}

}  // namespace

void CertificateDeleter::operator()(X509* certificate) const {
    X509_free(certificate);
}

CertificateRef retainCertificate(X509* certificate) {
    if (certificate) {
        X509_up_ref(certificate);
    }
    return CertificateRef(certificate);
}

ServerTrust::ServerTrust(std::vector<CertificateRef> chain, std::string hostname)
    : chain_(std::move(chain)), hostname_(std::move(hostname)) {}

std::optional<ServerTrust> ServerTrust::fromStoreContext(X509_STORE_CTX* context,
                                                         std::string hostname) {
    X509* leaf = context ? X509_STORE_CTX_get0_cert(context) : nullptr;
    if (!leaf) {
        return std::nullopt;
    }
    std::vector<CertificateRef> chain;
    chain.push_back(retainCertificate(leaf));
    // During a handshake the untrusted certificates are the whole peer chain, leaf included.
    STACK_OF(X509)* untrusted = X509_STORE_CTX_get0_untrusted(context);
    for (int i = 0; untrusted && i < sk_X509_num(untrusted); ++i) {
        X509* certificate = sk_X509_value(untrusted, i);
        if (X509_cmp(certificate, leaf) != 0) {
            chain.push_back(retainCertificate(certificate));
        }
    }
    return ServerTrust(std::move(chain), std::move(hostname));
}

void ServerTrust::setAnchorCertificates(std::vector<CertificateRef> anchors) {
    anchors_ = std::move(anchors);
}

std::optional<TrustEvaluation> ServerTrust::evaluate() const {
    // An empty name would switch the host-name check off.
    if (chain_.empty() || hostname_.empty()) {
        return std::nullopt;
    }
    X509StoreRef store =
        anchors_ ? storeWithAnchors(*anchors_) : TrustStore::sharedInstance()->store();
    CertificateStack untrusted(sk_X509_new_null());
    std::unique_ptr<X509_STORE_CTX, StoreContextDeleter> context(X509_STORE_CTX_new());
    if (!store || !untrusted || !context) {
        return std::nullopt;
    }
    for (std::size_t i = 1; i < chain_.size(); ++i) {
        if (!sk_X509_push(untrusted.get(), chain_[i].get())) {
            return std::nullopt;
        }
    }
    if (!X509_STORE_CTX_init(context.get(), store.get(), chain_.front().get(), untrusted.get()) ||
        !X509_STORE_CTX_set_purpose(context.get(), X509_PURPOSE_SSL_SERVER) ||
        !expectServerName(context.get(), hostname_)) {
        return std::nullopt;
    }
    // OpenSSL fills caches inside certificates (and the shared trusted ones) lazily while it
    // verifies; verifications on several threads at once race on them, so they take turns.
    static std::mutex verification;
    std::unique_lock turn(verification);
    int verified = X509_verify_cert(context.get());
    if (verified < 0) {
        return std::nullopt;
    }
    TrustEvaluation evaluation;
    evaluation.trusted = verified == 1;
    evaluation.error = X509_STORE_CTX_get_error(context.get());
    if (evaluation.trusted) {
        evaluation.chain = adoptChain(X509_STORE_CTX_get1_chain(context.get()));
    }
    return evaluation;
}

}  // namespace tarvik
