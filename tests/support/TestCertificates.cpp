#include "support/TestCertificates.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
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

KeyRef generateKey(KeyKind kind) {
    switch (kind) {
        case KeyKind::Rsa2048:
            return KeyRef(EVP_RSA_gen(2048));
        case KeyKind::Rsa4096:
            return KeyRef(EVP_RSA_gen(4096));
        case KeyKind::EcP256:
            return KeyRef(EVP_EC_gen("P-256"));
        case KeyKind::EcP384:
            return KeyRef(EVP_EC_gen("P-384"));
    }
    return nullptr;
}

void require(bool ok, const char* what) {
    if (!ok) {
        throw std::runtime_error(std::string("test certificate: ") + what);
    }
}

void addExtension(X509* certificate, X509* issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    require(extension && X509_add_ext(certificate, extension, -1), "extension");
    X509_EXTENSION_free(extension);
}

struct Issuer {
    X509* certificate;  // null: the certificate signs itself
    EVP_PKEY* key;
};

// A certificate for `subjectKey`, valid from `notBefore` to `notAfter` seconds from now. A
// certificate authority when `hostname` is empty, otherwise a TLS server for that name.
CertificateRef makeCertificate(EVP_PKEY* subjectKey, const std::string& commonName,
                               const std::string& hostname, Issuer issuer, long notBefore,
                               long notAfter) {
    static std::atomic<long> serial{1};
    CertificateRef certificate(X509_new());
    X509* x = certificate.get();
    require(x && X509_set_version(x, 2) && ASN1_INTEGER_set(X509_get_serialNumber(x), serial++) &&
                X509_gmtime_adj(X509_getm_notBefore(x), notBefore) &&
                X509_gmtime_adj(X509_getm_notAfter(x), notAfter) && X509_set_pubkey(x, subjectKey),
            "fields");
    X509_NAME* name = X509_get_subject_name(x);
    require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(commonName.c_str()),
                                       -1, -1, 0),
            "name");
    X509* issuerCertificate = issuer.certificate ? issuer.certificate : x;
    require(X509_set_issuer_name(x, X509_get_subject_name(issuerCertificate)), "issuer");
    addExtension(x, issuerCertificate, NID_subject_key_identifier, "hash");
    addExtension(x, issuerCertificate, NID_authority_key_identifier, "keyid:always");
    if (hostname.empty()) {
        addExtension(x, issuerCertificate, NID_basic_constraints, "critical,CA:TRUE");
        addExtension(x, issuerCertificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    } else {
        addExtension(x, issuerCertificate, NID_basic_constraints, "critical,CA:FALSE");
        addExtension(x, issuerCertificate, NID_key_usage, "critical,digitalSignature");
        addExtension(x, issuerCertificate, NID_ext_key_usage, "serverAuth");
        addExtension(x, issuerCertificate, NID_subject_alt_name, ("DNS:" + hostname).c_str());
    }
    require(X509_sign(x, issuer.key ? issuer.key : subjectKey, EVP_sha256()) > 0, "signature");
    return certificate;
}

EVP_PKEY* key(KeyKind kind) {
    static KeyRef keys[4];
    auto index = static_cast<std::size_t>(kind);
    if (!keys[index]) {
        keys[index] = generateKey(kind);
    }
    return keys[index].get();
}

EVP_PKEY* rootKey() {
    static KeyRef rootKey = generateKey(KeyKind::Rsa2048);
    return rootKey.get();
}

EVP_PKEY* intermediateKey() {
    static KeyRef intermediateKey = generateKey(KeyKind::EcP384);
    return intermediateKey.get();
}

Issuer intermediate() {
    return {intermediateCertificate(), intermediateKey()};
}

}  // namespace

X509* rootCertificate() {
    static CertificateRef root = makeCertificate(rootKey(), "Tarvik Test Root", "",
                                                 {nullptr, rootKey()}, -oneDay, 30 * oneDay);
    return root.get();
}

X509* intermediateCertificate() {
    static CertificateRef certificate =
        makeCertificate(intermediateKey(), "Tarvik Test Intermediate", "",
                        {rootCertificate(), rootKey()}, -oneDay, 30 * oneDay);
    return certificate.get();
}

X509* leafCertificate(KeyKind kind) {
    static CertificateRef leaves[4];
    CertificateRef& leaf = leaves[static_cast<std::size_t>(kind)];
    if (!leaf) {
        leaf = makeCertificate(key(kind), testHostname, testHostname, intermediate(), -oneDay,
                               30 * oneDay);
    }
    return leaf.get();
}

X509* expiredLeafCertificate() {
    static CertificateRef leaf = makeCertificate(key(KeyKind::Rsa2048), testHostname, testHostname,
                                                 intermediate(), -10 * oneDay, -oneDay);
    return leaf.get();
}

X509* selfSignedLeafCertificate() {
    static CertificateRef leaf =
        makeCertificate(key(KeyKind::Rsa2048), testHostname, testHostname,
                        {nullptr, key(KeyKind::Rsa2048)}, -oneDay, 30 * oneDay);
    return leaf.get();
}

X509* otherHostLeafCertificate() {
    static CertificateRef leaf = leafCertificateFor("other.example.test");
    return leaf.get();
}

CertificateRef leafCertificateFor(const std::string& hostname) {
    return makeCertificate(key(KeyKind::Rsa2048), hostname, hostname, intermediate(), -oneDay,
                           30 * oneDay);
}

EVP_PKEY* publicKey(X509* certificate) {
    return X509_get0_pubkey(certificate);
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

std::string pemOf(X509* certificate) {
    std::unique_ptr<BIO, decltype(&BIO_free)> output(BIO_new(BIO_s_mem()), &BIO_free);
    require(output && PEM_write_bio_X509(output.get(), certificate), "PEM");
    char* bytes = nullptr;
    long length = BIO_get_mem_data(output.get(), &bytes);
    return std::string(bytes, static_cast<std::size_t>(length));
}

Data derOf(X509* certificate) {
    int length = i2d_X509(certificate, nullptr);
    require(length > 0, "DER");
    Data der(static_cast<std::size_t>(length));
    unsigned char* cursor = der.data();
    i2d_X509(certificate, &cursor);
    return der;
}

}  // namespace tarvik::testsupport
