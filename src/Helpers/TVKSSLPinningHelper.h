#pragma once

#include <tarvik/Value.h>

#include "Platform/AuthenticationChallenge.h"
#include "Platform/ServerTrust.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarvik {

// Keys of a domain's pinning policy.
extern const std::string kTVKPublicKeyHashes;      // array of 32-byte SHA-256 digests (data)
extern const std::string kTVKPublicKeyAlgorithms;  // array; each entry's integer value picks a
                                                   // key header (asn1HeaderBytes)
extern const std::string kTVKEnforcePinning;       // boolean: refuse a chain with no pinned key
extern const std::string kTVKIncludeSubdomains;    // boolean: also govern hosts ending in it
extern const std::string kTVKExpirationDate;       // date: after it the domain is not pinned
extern const std::string kTVKExcludeSubdomainFromParentPolicy;  // boolean, on a host's own entry

// Key algorithm names.
extern const std::string kTVKAlgorithmRsa2048;
extern const std::string kTVKAlgorithmRsa4096;
extern const std::string kTVKAlgorithmEcDsaSecp256r1;
extern const std::string kTVKAlgorithmEcDsaSecp384r1;

// The application tag of the keychain item the keychain-based key extraction uses.
extern const std::string kTVKKeychainPublicKeyTag;

// The DER SubjectPublicKeyInfo header of each key type, up to the key bits, indexed by
// algorithm number: 0 RSA 2048, 1 RSA 4096, 2 EC P-256, 3 EC P-384.
extern const std::array<const unsigned char*, 4> asn1HeaderBytes;
extern const std::array<std::uint32_t, 4> asn1HeaderSizes;

enum TVKPinCheckResult : std::int64_t {
    TVKPinCheckMatched = 0,          // a key in the chain is pinned
    TVKPinCheckNoMatch = 1,          // the chain is trusted but no key in it is pinned
    TVKPinCheckChainNotTrusted = 2,  // the chain does not verify
    TVKPinCheckInvalidInput = 3,     // an argument was missing, or verification could not run
    TVKPinCheckHashError = 5,        // a key's hash could not be computed
};

enum TVKTrustDecision : std::int64_t {
    TVKTrustDecisionAllow = 0,
    TVKTrustDecisionRefuse = 1,
    TVKTrustDecisionNotPinned = 2,
};

// True when `host` ends with `domain`. There is deliberately no dot boundary: "x" + domain is
// a subdomain just as "api." + domain is.
bool isSubdomain(const std::string& domain, const std::string& host);

// The key of the policy that governs `hostname`: its own entry if it has one, otherwise the
// first key, in the dictionary's order (the order its keys were inserted in), whose policy
// includes subdomains and of which the host is a subdomain. None when no policy governs it.
std::optional<std::string> getPinningConfigurationKeyForDomain(const std::string& hostname,
                                                               const Dictionary& policies);

// Holds the pinning policy of each domain and decides, for a server's chain, whether a
// connection may go on: the chain must verify and contain a public key whose hash is pinned.
// The policies are fixed at construction, so one helper may decide on any number of threads.
class TVKSSLPinningHelper {
  public:
    // The built-in policy: the SDK's API domain with its pins (see include/tarvik/Pinning.h),
    // subdomains included, enforced, the keys hashed with the header of algorithm 0.
    TVKSSLPinningHelper();
    explicit TVKSSLPinningHelper(Dictionary domainPinningPolicies);

    const Dictionary& domainPinningPolicies() const { return domainPinningPolicies_; }

    // Answers a server-trust challenge with the decision for its trust and host (Allow:
    // use-credential with the trust; NotPinned: perform-default-handling; Refuse: cancel) and
    // returns true. Any other challenge: false, and the handler is not called.
    bool handleChallenge(const AuthenticationChallenge& challenge,
                         const ChallengeCompletionHandler& completionHandler) const;

    // The decision for a server's chain presented for `hostname`; a missing trust or host name
    // is refused.
    TVKTrustDecision evaluateTrust(const ServerTrust* serverTrust,
                                   const std::optional<std::string>& hostname) const;

    // Verifies the chain (for the trust's own host name), then looks for a pinned key from the
    // root end of the verified chain down to the server's certificate, hashing each key with
    // each algorithm of `supportedAlgorithms` in turn. A null argument gives InvalidInput.
    static TVKPinCheckResult verifyPublicKeyPinForServer(
        const ServerTrust* serverTrust, const std::optional<std::string>& serverHostname,
        const Array* supportedAlgorithms, const Array* knownPins);

    // SHA-256 of the header of algorithm `publicKeyAlgorithm` followed by the certificate's
    // key bits; none when the key cannot be read or the number has no header.
    static std::optional<Data> hashSubjectPublicKeyInfoFromCertificate(
        X509* certificate, std::int64_t publicKeyAlgorithm);

    // The certificate's bare key bits: for RSA the PKCS#1 RSAPublicKey DER, for EC the point.
    static std::optional<Data> getPublicKeyDataFromCertificate(X509* certificate);
    // Reads the bits from the certificate's SubjectPublicKeyInfo.
    static std::optional<Data> getPublicKeyDataFromCertificate_unified(X509* certificate);

    // The built-in policy's domain and base64 pins, as the host configured them (or the
    // defaults); used by the default constructor.
    static bool setBuiltInPolicy(std::string domain, const std::vector<std::string>& base64Pins);
    static Dictionary builtInPolicies();

  private:
    Dictionary domainPinningPolicies_;
};

}  // namespace tarvik
