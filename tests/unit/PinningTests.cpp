#include <tarvik/Pinning.h>
#include <tarvik/TarvikConstants.h>

#include "Helpers/TVKSSLPinningHelper.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/TestCertificates.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace tarvik {
namespace {

using namespace std::chrono_literals;
using testing::TestRuntime;
using testsupport::intermediateCertificate;
using testsupport::KeyKind;
using testsupport::leafCertificate;
using testsupport::rootCertificate;
using testsupport::testHostname;
using testsupport::trustFor;

Data hashOf(X509* certificate, std::int64_t algorithm) {
    std::optional<Data> hash =
        TVKSSLPinningHelper::hashSubjectPublicKeyInfoFromCertificate(certificate, algorithm);
    EXPECT_TRUE(hash.has_value());
    return hash.value_or(Data{});
}

Data sha256(const Data& bytes) {
    Data digest(32);
    EXPECT_EQ(EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr),
              1);
    return digest;
}

Dictionary policy(Array pins, Array algorithms = {0}, bool enforce = true,
                  bool includeSubdomains = true) {
    return Dictionary{{kTVKPublicKeyHashes, std::move(pins)},
                      {kTVKPublicKeyAlgorithms, std::move(algorithms)},
                      {kTVKEnforcePinning, enforce},
                      {kTVKIncludeSubdomains, includeSubdomains}};
}

// The RSA 2048 leaf's pin under algorithm 0, as the built-in policy hashes it.
Array leafPins() {
    return Array{hashOf(leafCertificate(KeyKind::Rsa2048), 0)};
}

// The same pin as the host configures it: standard base64.
std::string leafPinBase64() {
    Data pin = hashOf(leafCertificate(KeyKind::Rsa2048), 0);
    unsigned char text[45];
    EVP_EncodeBlock(text, pin.data(), static_cast<int>(pin.size()));
    return reinterpret_cast<const char*>(text);
}

Array unrelatedPins() {
    return Array{sha256(Data{1, 2, 3})};
}

TEST(PinningPolicyLookup, OwnEntryFirstThenTheFirstCoveringKeyInKeyOrder) {
    TestRuntime test;
    Dictionary policies{{"example.test", policy(unrelatedPins())},
                        {"own.example.test", policy(unrelatedPins(), {0}, true, false)},
                        {"z.example.test", policy(unrelatedPins())},
                        {"a.z.example.test", policy(unrelatedPins())}};
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"example.test", "example.test"},
        {"api.example.test", "example.test"},
        // A plain suffix test, with no dot boundary.
        {"xexample.test", "example.test"},
        {"example.test.evil", std::nullopt},
        {"example.org", std::nullopt},
        // A host's own entry wins over a parent's, even one without subdomains; without them
        // a policy governs its own host only, and a parent's governs the subdomains.
        {"own.example.test", "own.example.test"},
        {"api.own.example.test", "example.test"},
        // Keys are visited in the dictionary's order: the first covering key wins, not the
        // longest, and not the first in sorted order ("a.z.example.test").
        {"x.a.z.example.test", "example.test"},
    };
    for (const auto& [host, expected] : cases) {
        EXPECT_EQ(getPinningConfigurationKeyForDomain(host, policies), expected) << host;
    }
}

TEST(PinningKeyHashes, EachAlgorithmNumberHashesItsKeyTypesSubjectPublicKeyInfo) {
    TestRuntime test;
    // The intermediate's key is EC P-384.
    const std::pair<X509*, std::int64_t> certificates[] = {{leafCertificate(KeyKind::Rsa2048), 0},
                                                           {leafCertificate(KeyKind::Rsa4096), 1},
                                                           {leafCertificate(KeyKind::EcP256), 2},
                                                           {intermediateCertificate(), 3}};
    for (auto [certificate, number] : certificates) {
        SCOPED_TRACE(number);
        // The key's SubjectPublicKeyInfo as OpenSSL encodes it.
        Data spki(static_cast<std::size_t>(i2d_PUBKEY(X509_get0_pubkey(certificate), nullptr)));
        unsigned char* cursor = spki.data();
        i2d_PUBKEY(X509_get0_pubkey(certificate), &cursor);
        // The header followed by the extracted key bits is exactly that encoding.
        EXPECT_EQ(hashOf(certificate, number), sha256(spki));
    }
    EXPECT_EQ(TVKSSLPinningHelper::getPublicKeyDataFromCertificate(nullptr), std::nullopt);
}

struct PinCheckCase {
    const char* name;
    ServerTrust trust;
    const Array& algorithms;
    const Array& pins;
    TVKPinCheckResult expected;
};

TEST(PinCheck, VerifiesTheChainThenLooksForAPinnedKeyFromTheRootDown) {
    TestRuntime test;
    X509* leaf = leafCertificate(KeyKind::Rsa2048);
    X509* ec256 = leafCertificate(KeyKind::EcP256);
    const Array rsa2048{0};
    const Array rsa2048AndEc384{0, 3};
    // Algorithm 9 has no header: the walk fails on the second certificate it reaches.
    const Array rsa2048AndNone{0, 9};
    // Algorithm names have the integer value 0: every key is hashed with the first header.
    const Array names{kTVKAlgorithmRsa2048, kTVKAlgorithmRsa4096};
    const Array leafPin = leafPins();
    // The root's key is RSA 2048, the intermediate's EC P-384.
    const Array rootPin{hashOf(rootCertificate(), 0)};
    const Array intermediatePin{hashOf(intermediateCertificate(), 3)};
    const Array ecOwnHeaderPin{hashOf(ec256, 2)};
    const Array ecFirstHeaderPin{hashOf(ec256, 0)};
    const Array unrelated = unrelatedPins();
    // Every untrusted chain holds the pinned leaf key: only the chain check can refuse it.
    PinCheckCase cases[] = {
        {"the leaf's key", trustFor(leaf), rsa2048, leafPin, TVKPinCheckMatched},
        {"the intermediate's key", trustFor(leaf), rsa2048AndEc384, intermediatePin,
         TVKPinCheckMatched},
        {"the root's key", trustFor(leaf), rsa2048AndEc384, rootPin, TVKPinCheckMatched},
        {"no pinned key", trustFor(leaf), rsa2048AndEc384, unrelated, TVKPinCheckNoMatch},
        {"the root before a bad algorithm", trustFor(leaf), rsa2048AndNone, rootPin,
         TVKPinCheckMatched},
        {"a bad algorithm before the leaf", trustFor(leaf), rsa2048AndNone, leafPin,
         TVKPinCheckHashError},
        {"EC named, own header", trustFor(ec256), names, ecOwnHeaderPin, TVKPinCheckNoMatch},
        {"EC named, first header", trustFor(ec256), names, ecFirstHeaderPin, TVKPinCheckMatched},
        {"an expired leaf", trustFor(testsupport::expiredLeafCertificate()), rsa2048, leafPin,
         TVKPinCheckChainNotTrusted},
        {"a self-signed leaf", trustFor(testsupport::selfSignedLeafCertificate()), rsa2048, leafPin,
         TVKPinCheckChainNotTrusted},
        {"a leaf that does not name the host", trustFor(leaf, "other.example.test"), rsa2048,
         leafPin, TVKPinCheckChainNotTrusted},
        // An empty name would switch the host check off, so there is nothing to verify.
        {"no host name", trustFor(leaf, ""), rsa2048, leafPin, TVKPinCheckInvalidInput},
    };
    for (const PinCheckCase& c : cases) {
        EXPECT_EQ(TVKSSLPinningHelper::verifyPublicKeyPinForServer(&c.trust, testHostname,
                                                                   &c.algorithms, &c.pins),
                  c.expected)
            << c.name;
    }
}

struct DecisionCase {
    const char* name;
    const Dictionary& policies;
    ServerTrust trust;
    std::string hostname;
    TVKTrustDecision expected;
};

Dictionary onExampleTest(Dictionary domainPolicy) {
    return Dictionary{{"example.test", std::move(domainPolicy)}};
}

TEST(PinningDecision, FollowsPolicyExpiryExclusionAndEnforcement) {
    TestRuntime test;
    Date now = test.runtime().clock().now();
    X509* leaf = leafCertificate(KeyKind::Rsa2048);
    const Dictionary pinned = onExampleTest(policy(leafPins()));
    const Dictionary unpinned = onExampleTest(policy(unrelatedPins()));
    const Dictionary unenforced = onExampleTest(policy(unrelatedPins(), {0}, false));
    const Dictionary unenforcedNoHeader = onExampleTest(policy(unrelatedPins(), {9}, false));
    // Missing algorithms are invalid input, not a missing pin, even without enforcement.
    Dictionary noAlgorithms = unenforced;
    noAlgorithms["example.test"].asDictionary()->erase(kTVKPublicKeyAlgorithms);
    auto expiringAt = [](Date date) {
        Dictionary expiring = policy(unrelatedPins());
        expiring[kTVKExpirationDate] = date;
        return onExampleTest(expiring);
    };
    const Dictionary expired = expiringAt(now - 1s);
    const Dictionary expiresNow = expiringAt(now);
    const Dictionary expiresSoon = expiringAt(now + 1s);
    Dictionary excluding = unpinned;
    excluding[testHostname] = Dictionary{{kTVKExcludeSubdomainFromParentPolicy, true}};
    CertificateRef siblingLeaf = testsupport::leafCertificateFor("web.example.test");
    DecisionCase cases[] = {
        {"pinned key", pinned, trustFor(leaf), testHostname, TVKTrustDecisionAllow},
        {"no pinned key", unpinned, trustFor(leaf), testHostname, TVKTrustDecisionRefuse},
        {"no algorithms", noAlgorithms, trustFor(leaf), testHostname, TVKTrustDecisionRefuse},
        {"host without a policy", unpinned, trustFor(leaf, "api.example.org"), "api.example.org",
         TVKTrustDecisionNotPinned},
        // Without enforcement a missing pin is allowed, but the chain must still verify and
        // the keys hash.
        {"not enforced", unenforced, trustFor(leaf), testHostname, TVKTrustDecisionAllow},
        {"not enforced, expired leaf", unenforced, trustFor(testsupport::expiredLeafCertificate()),
         testHostname, TVKTrustDecisionRefuse},
        {"not enforced, bad algorithm", unenforcedNoHeader, trustFor(leaf), testHostname,
         TVKTrustDecisionRefuse},
        // A policy applies up to and including its expiration date.
        {"expired a second ago", expired, trustFor(leaf), testHostname, TVKTrustDecisionNotPinned},
        {"expires now", expiresNow, trustFor(leaf), testHostname, TVKTrustDecisionRefuse},
        {"expires in a second", expiresSoon, trustFor(leaf), testHostname, TVKTrustDecisionRefuse},
        {"excluded from its parent", excluding, trustFor(leaf), testHostname,
         TVKTrustDecisionNotPinned},
        // Its correctly issued chain lacks the parent's pins.
        {"sibling of an excluded host", excluding, trustFor(siblingLeaf.get(), "web.example.test"),
         "web.example.test", TVKTrustDecisionRefuse},
    };
    for (const DecisionCase& c : cases) {
        EXPECT_EQ(TVKSSLPinningHelper(c.policies).evaluateTrust(&c.trust, c.hostname), c.expected)
            << c.name;
    }
    ServerTrust valid = trustFor(leaf);
    TVKSSLPinningHelper helper(pinned);
    EXPECT_EQ(helper.evaluateTrust(nullptr, testHostname), TVKTrustDecisionRefuse);
    EXPECT_EQ(helper.evaluateTrust(&valid, std::nullopt), TVKTrustDecisionRefuse);
}

TEST(BuiltInPinningPolicy, RefusesTheDefaultHostUntilTheHostConfiguresItsPins) {
    TestRuntime test;
    CertificateRef apiLeaf = testsupport::leafCertificateFor(TarvikDomainName);
    ServerTrust apiTrust = trustFor(apiLeaf.get(), TarvikDomainName);
    ServerTrust trust = trustFor(leafCertificate(KeyKind::Rsa2048));
    // The default domain covers the default host, and no key matches the placeholder pins.
    EXPECT_EQ(TVKSSLPinningHelper().evaluateTrust(&apiTrust, TarvikDomainName),
              TVKTrustDecisionRefuse);
    EXPECT_EQ(TVKSSLPinningHelper().evaluateTrust(&trust, testHostname), TVKTrustDecisionNotPinned);

    // A pin that is not the base64 text of a 32-byte digest changes nothing.
    std::string pin = leafPinBase64();
    EXPECT_FALSE(setPinnedDomain("example.test", {pin, "not base64 at all"}));
    EXPECT_FALSE(setPinnedDomain("example.test", {pin.substr(0, 40) + "AA=="}));
    EXPECT_EQ(TVKSSLPinningHelper().evaluateTrust(&trust, testHostname), TVKTrustDecisionNotPinned);

    ASSERT_TRUE(setPinnedDomain("example.test", {pin}));
    EXPECT_EQ(TVKSSLPinningHelper().evaluateTrust(&trust, testHostname), TVKTrustDecisionAllow);
    EXPECT_EQ(TVKSSLPinningHelper().evaluateTrust(&apiTrust, TarvikDomainName),
              TVKTrustDecisionNotPinned);
}

}  // namespace
}  // namespace tarvik
