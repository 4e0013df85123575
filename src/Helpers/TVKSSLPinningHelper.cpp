#include "Helpers/TVKSSLPinningHelper.h"

#include "Platform/Runtime.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <mutex>

namespace tarvik {

const std::string kTVKPublicKeyHashes = "TVKPublicKeyHashes";
const std::string kTVKPublicKeyAlgorithms = "TVKPublicKeyAlgorithms";
const std::string kTVKEnforcePinning = "TVKEnforcePinning";
const std::string kTVKIncludeSubdomains = "TVKIncludeSubdomains";
const std::string kTVKExpirationDate = "TVKExpirationDate";
const std::string kTVKExcludeSubdomainFromParentPolicy = "TVKExcludeSubdomainFromParentPolicy";

const std::string kTVKAlgorithmRsa2048 = "TVKAlgorithmRsa2048";
const std::string kTVKAlgorithmRsa4096 = "TVKAlgorithmRsa4096";
const std::string kTVKAlgorithmEcDsaSecp256r1 = "TVKAlgorithmEcDsaSecp256r1";
const std::string kTVKAlgorithmEcDsaSecp384r1 = "TVKAlgorithmEcDsaSecp384r1";

const std::string kTVKKeychainPublicKeyTag = "TVKKeychainPublicKeyTag";

namespace {

const unsigned char rsa2048Asn1Header[] = {0x30, 0x82, 0x01, 0x22, 0x30, 0x0d, 0x06, 0x09,
                                           0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01,
                                           0x01, 0x05, 0x00, 0x03, 0x82, 0x01, 0x0f, 0x00};
const unsigned char rsa4096Asn1Header[] = {0x30, 0x82, 0x02, 0x22, 0x30, 0x0d, 0x06, 0x09,
                                           0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01,
                                           0x01, 0x05, 0x00, 0x03, 0x82, 0x02, 0x0f, 0x00};
const unsigned char ecDsaSecp256r1Asn1Header[] = {
    0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01,
    0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07, 0x03, 0x42, 0x00};
const unsigned char ecDsaSecp384r1Asn1Header[] = {0x30, 0x76, 0x30, 0x10, 0x06, 0x07, 0x2a, 0x86,
                                                  0x48, 0xce, 0x3d, 0x02, 0x01, 0x06, 0x05, 0x2b,
                                                  0x81, 0x04, 0x00, 0x22, 0x03, 0x62, 0x00};

// The registrable domain of the default API host (TarvikDomainName, "api.tarvikhq.com").
const char* const defaultPinnedDomain = "tarvikhq.com";

// Placeholders, not pins of any real key: the SHA-256 digests of the texts
// "Tarvik placeholder pin 1", "... 2" and "... 3". No key hashes to them, so until the host
// configures its service's pins (setPinnedDomain in tarvik/Pinning.h) every connection to the
// default domain is refused, which is the safe way to fail.
const char* const defaultBase64Pins[] = {
    "YDaKoaOeUielgX0pkrPpTUUWWovK8ef01/4cNuK5+/s=",
    "Gu5yP02ZgucW/BGjUmfaJicCAu1LcbYrjheNv1bJ0iU=",
    "HbuU16DPoYTiC+0iIAJZf02McPnuEhRqW7TCbHDLwbc=",
};

// A SHA-256 digest in standard base64 is 43 characters and one "=".
std::optional<Data> decodedPin(const std::string& base64) {
    if (base64.size() != 44 || base64[43] != '=' || base64[42] == '=') {
        return std::nullopt;
    }
    Data decoded(33);
    if (EVP_DecodeBlock(decoded.data(), reinterpret_cast<const unsigned char*>(base64.data()),
                        static_cast<int>(base64.size())) != 33) {
        return std::nullopt;
    }
    decoded.pop_back();  // the zero byte that stands for the padding
    return decoded;
}

// What the host configured for the built-in policy, read whenever a helper is made.
struct BuiltInPolicySettings {
    std::mutex mutex;
    std::string domain = defaultPinnedDomain;
    Array pins = [] {
        Array pins;
        for (const char* pin : defaultBase64Pins) {
            pins.emplace_back(*decodedPin(pin));
        }
        return pins;
    }();
};

std::shared_ptr<BuiltInPolicySettings> builtInPolicySettings() {
    return Runtime::current().sharedInstance<BuiltInPolicySettings>();
}

bool policyFlag(const Value& policy, const std::string& key) {
    const Value* flag = policy.find(key);
    return flag && flag->boolValue();
}

const Array* policyArray(const Value& policy, const std::string& key) {
    const Value* array = policy.find(key);
    return array ? array->asArray() : nullptr;
}

std::optional<Data> sha256(const unsigned char* header, std::size_t headerSize, const Data& key) {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    &EVP_MD_CTX_free);
    Data digest(32);
    unsigned int length = 0;
    if (!context || !EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) ||
        !EVP_DigestUpdate(context.get(), header, headerSize) ||
        !EVP_DigestUpdate(context.get(), key.data(), key.size()) ||
        !EVP_DigestFinal_ex(context.get(), digest.data(), &length) || length != digest.size()) {
        return std::nullopt;
    }
    return digest;
}

}  // namespace

const std::array<const unsigned char*, 4> asn1HeaderBytes = {
    rsa2048Asn1Header, rsa4096Asn1Header, ecDsaSecp256r1Asn1Header, ecDsaSecp384r1Asn1Header};
const std::array<std::uint32_t, 4> asn1HeaderSizes = {
    sizeof(rsa2048Asn1Header), sizeof(rsa4096Asn1Header), sizeof(ecDsaSecp256r1Asn1Header),
    sizeof(ecDsaSecp384r1Asn1Header)};

bool isSubdomain(const std::string& domain, const std::string& host) {
    return host.ends_with(domain);
}

std::optional<std::string> getPinningConfigurationKeyForDomain(const std::string& hostname,
                                                               const Dictionary& policies) {
    if (policies.contains(hostname)) {
        return hostname;
    }
    for (const auto& [domain, policy] : policies) {
        if (policyFlag(policy, kTVKIncludeSubdomains) && isSubdomain(domain, hostname)) {
            return domain;
        }
    }
    return std::nullopt;
}

TVKSSLPinningHelper::TVKSSLPinningHelper() : TVKSSLPinningHelper(builtInPolicies()) {}

TVKSSLPinningHelper::TVKSSLPinningHelper(Dictionary domainPinningPolicies)
    : domainPinningPolicies_(std::move(domainPinningPolicies)) {}

bool TVKSSLPinningHelper::setBuiltInPolicy(std::string domain,
                                           const std::vector<std::string>& base64Pins) {
    Array pins;
    for (const std::string& base64 : base64Pins) {
        std::optional<Data> pin = decodedPin(base64);
        if (!pin) {
            return false;
        }
        pins.emplace_back(std::move(*pin));
    }
    std::shared_ptr<BuiltInPolicySettings> settings = builtInPolicySettings();
    std::lock_guard lock(settings->mutex);
    settings->domain = std::move(domain);
    settings->pins = std::move(pins);
    return true;
}

Dictionary TVKSSLPinningHelper::builtInPolicies() {
    std::shared_ptr<BuiltInPolicySettings> settings = builtInPolicySettings();
    std::lock_guard lock(settings->mutex);
    // The names' integer value is 0, so every key is hashed with the RSA 2048 header.
    return Dictionary{{settings->domain, Dictionary{
                                             {kTVKPublicKeyAlgorithms,
                                              Array{kTVKAlgorithmRsa2048, kTVKAlgorithmRsa4096}},
                                             {kTVKPublicKeyHashes, settings->pins},
                                             {kTVKEnforcePinning, true},
                                             {kTVKIncludeSubdomains, true},
                                         }}};
}

bool TVKSSLPinningHelper::handleChallenge(
    const AuthenticationChallenge& challenge,
    const ChallengeCompletionHandler& completionHandler) const {
    if (challenge.authenticationMethod != AuthenticationMethodServerTrust) {
        return false;
    }
    switch (evaluateTrust(challenge.serverTrust, challenge.host)) {
        case TVKTrustDecisionAllow:
            completionHandler(AuthChallengeUseCredential, challenge.serverTrust);
            break;
        case TVKTrustDecisionNotPinned:
            completionHandler(AuthChallengePerformDefaultHandling, nullptr);
            break;
        case TVKTrustDecisionRefuse:
            completionHandler(AuthChallengeCancelAuthenticationChallenge, nullptr);
            break;
    }
    return true;
}

TVKTrustDecision TVKSSLPinningHelper::evaluateTrust(
    const ServerTrust* serverTrust, const std::optional<std::string>& hostname) const {
    if (!serverTrust || !hostname) {
        return TVKTrustDecisionRefuse;
    }
    std::optional<std::string> key =
        getPinningConfigurationKeyForDomain(*hostname, domainPinningPolicies_);
    if (!key) {
        return TVKTrustDecisionNotPinned;
    }
    const Value& policy = domainPinningPolicies_.at(*key);
    const Value* expiration = policy.find(kTVKExpirationDate);
    if (expiration && expiration->asDate() &&
        *expiration->asDate() < Runtime::current().clock().now()) {
        return TVKTrustDecisionNotPinned;
    }
    if (policyFlag(policy, kTVKExcludeSubdomainFromParentPolicy)) {
        return TVKTrustDecisionNotPinned;
    }
    switch (verifyPublicKeyPinForServer(serverTrust, hostname,
                                        policyArray(policy, kTVKPublicKeyAlgorithms),
                                        policyArray(policy, kTVKPublicKeyHashes))) {
        case TVKPinCheckMatched:
            return TVKTrustDecisionAllow;
        case TVKPinCheckNoMatch:
            return policyFlag(policy, kTVKEnforcePinning) ? TVKTrustDecisionRefuse
                                                          : TVKTrustDecisionAllow;
        default:
            // An untrusted chain or a key that cannot be hashed is refused even when the
            // policy does not enforce its pins.
            return TVKTrustDecisionRefuse;
    }
}

TVKPinCheckResult TVKSSLPinningHelper::verifyPublicKeyPinForServer(
    const ServerTrust* serverTrust, const std::optional<std::string>& /*serverHostname*/,
    const Array* supportedAlgorithms, const Array* knownPins) {
    // The host name the chain must name is the trust's own, as the connection set it.
    if (!serverTrust || !supportedAlgorithms || !knownPins) {
        return TVKPinCheckInvalidInput;
    }
    std::optional<TrustEvaluation> evaluation = serverTrust->evaluate();
    if (!evaluation) {
        return TVKPinCheckInvalidInput;
    }
    if (!evaluation->trusted) {
        return TVKPinCheckChainNotTrusted;
    }
    for (auto certificate = evaluation->chain.rbegin(); certificate != evaluation->chain.rend();
         ++certificate) {
        for (const Value& algorithm : *supportedAlgorithms) {
            std::optional<Data> hash = hashSubjectPublicKeyInfoFromCertificate(
                certificate->get(), algorithm.integerValue());
            if (!hash) {
                return TVKPinCheckHashError;
            }
            if (std::find(knownPins->begin(), knownPins->end(), Value(std::move(*hash))) !=
                knownPins->end()) {
                return TVKPinCheckMatched;
            }
        }
    }
    return TVKPinCheckNoMatch;
}

std::optional<Data> TVKSSLPinningHelper::hashSubjectPublicKeyInfoFromCertificate(
    X509* certificate, std::int64_t publicKeyAlgorithm) {
    std::optional<Data> key = getPublicKeyDataFromCertificate(certificate);
    // A number without a header gives no hash (and so a refusal) rather than a read outside
    // the table.
    if (!key || publicKeyAlgorithm < 0 ||
        publicKeyAlgorithm >= static_cast<std::int64_t>(asn1HeaderBytes.size())) {
        return std::nullopt;
    }
    auto index = static_cast<std::size_t>(publicKeyAlgorithm);
    return sha256(asn1HeaderBytes[index], asn1HeaderSizes[index], *key);
}

std::optional<Data> TVKSSLPinningHelper::getPublicKeyDataFromCertificate(X509* certificate) {
    // Without a keychain there is one way to read the key, whatever the system's version.
    return getPublicKeyDataFromCertificate_unified(certificate);
}

std::optional<Data> TVKSSLPinningHelper::getPublicKeyDataFromCertificate_unified(
    X509* certificate) {
    // The key must decode, as the platform's key object requires, but its bits are taken as
    // the certificate carries them rather than re-encoded.
    if (!certificate || !X509_get0_pubkey(certificate)) {
        return std::nullopt;
    }
    const unsigned char* bits = nullptr;
    int length = 0;
    X509_PUBKEY* subjectPublicKeyInfo = X509_get_X509_PUBKEY(certificate);
    if (!subjectPublicKeyInfo ||
        !X509_PUBKEY_get0_param(nullptr, &bits, &length, nullptr, subjectPublicKeyInfo) ||
        length <= 0) {
        return std::nullopt;
    }
    return Data(bits, bits + length);
}

}  // namespace tarvik
