#include "support/TestCertificates.h"

#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <stdexcept>
#include <vector>

namespace tarvik::testsupport {
namespace {

struct KeyDeleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using KeyRef = std::unique_ptr<EVP_PKEY, KeyDeleter>;

constexpr long oneDay = 24 * 60 * 60;

void require(bool ok, const char* what) {
    if (!ok) {
        throw std::runtime_error(std::string("test certificate: ") + what);
    }
}

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
    require(extension && X509_add_ext(certificate, extension, -1), "extension");
    X509_EXTENSION_free(extension);
}

// A certificate for `key`, valid from `notBefore` to `notAfter` seconds from now, signed by
// `issuerKey` on behalf of `issuer` (itself when null). A certificate authority when
// `hostname` is empty, otherwise a TLS server for that name.
CertificateRef makeCertificate(EVP_PKEY* key, const std::string& hostname, X509* issuer,
                               EVP_PKEY* issuerKey, long notBefore = -oneDay,
                               long notAfter = 30 * oneDay) {
    static std::atomic<long> serial{1};
    CertificateRef certificate(X509_new());
    X509* x = certificate.get();
    std::string commonName =
        hostname.empty() ? "Tarvik Test CA " + std::to_string(serial) : hostname;
    require(x && X509_set_version(x, 2) && ASN1_INTEGER_set(X509_get_serialNumber(x), serial++) &&
                X509_gmtime_adj(X509_getm_notBefore(x), notBefore) &&
                X509_gmtime_adj(X509_getm_notAfter(x), notAfter) && X509_set_pubkey(x, key) &&
                X509_NAME_add_entry_by_txt(
                    X509_get_subject_name(x), "CN", MBSTRING_UTF8,
                    reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0),
            "fields");
    issuer = issuer ? issuer : x;
    require(X509_set_issuer_name(x, X509_get_subject_name(issuer)), "issuer");
    addExtension(x, issuer, NID_subject_key_identifier, "hash");
    addExtension(x, issuer, NID_authority_key_identifier, "keyid:always");
    if (hostname.empty()) {
        addExtension(x, issuer, NID_basic_constraints, "critical,CA:TRUE");
        addExtension(x, issuer, NID_key_usage, "critical,keyCertSign,cRLSign");
    } else {
        addExtension(x, issuer, NID_basic_constraints, "critical,CA:FALSE");
        addExtension(x, issuer, NID_ext_key_usage, "serverAuth");
        addExtension(x, issuer, NID_subject_alt_name, "DNS:" + hostname);
    }
    require(X509_sign(x, issuerKey, EVP_sha256()) > 0, "signature");
    return certificate;
}

// The leaves' keys, one per kind; the authorities have keys of their own.
EVP_PKEY* leafKey(KeyKind kind) {
    static KeyRef keys[3];
    KeyRef& key = keys[static_cast<std::size_t>(kind)];
    if (!key) {
        key.reset(kind == KeyKind::Rsa2048   ? EVP_RSA_gen(2048)
                  : kind == KeyKind::Rsa4096 ? EVP_RSA_gen(4096)
                                             : EVP_EC_gen("P-256"));
    }
    return key.get();
}

EVP_PKEY* rootKey() {
    static KeyRef rootKey(EVP_RSA_gen(2048));
    return rootKey.get();
}

EVP_PKEY* intermediateKey() {
    static KeyRef intermediateKey(EVP_EC_gen("P-384"));
    return intermediateKey.get();
}

}  // namespace

X509* rootCertificate() {
    static CertificateRef root = makeCertificate(rootKey(), "", nullptr, rootKey());
    return root.get();
}

X509* intermediateCertificate() {
    static CertificateRef certificate =
        makeCertificate(intermediateKey(), "", rootCertificate(), rootKey());
    return certificate.get();
}

X509* leafCertificate(KeyKind kind) {
    static CertificateRef leaves[3];
    CertificateRef& leaf = leaves[static_cast<std::size_t>(kind)];
    if (!leaf) {
        leaf = makeCertificate(leafKey(kind), testHostname, intermediateCertificate(),
                               intermediateKey());
    }
    return leaf.get();
}

X509* expiredLeafCertificate() {
    static CertificateRef leaf =
        makeCertificate(leafKey(KeyKind::Rsa2048), testHostname, intermediateCertificate(),
                        intermediateKey(), -10 * oneDay, -oneDay);
    return leaf.get();
}

X509* selfSignedLeafCertificate() {
    EVP_PKEY* key = leafKey(KeyKind::Rsa2048);
    static CertificateRef leaf = makeCertificate(key, testHostname, nullptr, key);
    return leaf.get();
}

CertificateRef leafCertificateFor(const std::string& hostname) {
    return makeCertificate(leafKey(KeyKind::Rsa2048), hostname, intermediateCertificate(),
                           intermediateKey());
}

ServerTrust trustFor(X509* leaf, const std::string& hostname) {
    std::vector<CertificateRef> chain;
    chain.push_back(retainCertificate(leaf));
    chain.push_back(retainCertificate(intermediateCertificate()));
    ServerTrust trust(std::move(chain), hostname);
    std::vector<CertificateRef> anchors;
    anchors.push_back(retainCertificate(rootCertificate()));
    trust.setAnchorCertificates(std::move(anchors));
    return trust;
}

}  // namespace tarvik::testsupport
