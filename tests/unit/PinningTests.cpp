#include <tarvik/Pinning.h>
#include <tarvik/TarvikConstants.h>

#include "Helpers/TVKSSLPinningHelper.h"
#include "Helpers/TVKTrustManager.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/TestCertificates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <atomic>
#include <fstream>
#include <thread>

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

std::string base64Of(const Data& bytes) {
    std::vector<char> text(4 * ((bytes.size() + 2) / 3) + 1);
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                                 static_cast<int>(bytes.size()));
    return std::string(text.data(), static_cast<std::size_t>(length));
}

// The key's SubjectPublicKeyInfo as OpenSSL encodes it.
Data subjectPublicKeyInfoOf(X509* certificate) {
    EVP_PKEY* key = testsupport::publicKey(certificate);
    Data der(static_cast<std::size_t>(i2d_PUBKEY(key, nullptr)));
    unsigned char* cursor = der.data();
    i2d_PUBKEY(key, &cursor);
    return der;
}

// The bare key as OpenSSL encodes it: PKCS#1 for RSA, the uncompressed point for EC.
Data bareKeyOf(X509* certificate) {
    EVP_PKEY* key = testsupport::publicKey(certificate);
    Data der(static_cast<std::size_t>(i2d_PublicKey(key, nullptr)));
    unsigned char* cursor = der.data();
    i2d_PublicKey(key, &cursor);
    return der;
}

Dictionary policy(Array pins, Array algorithms = {0}, bool enforce = true) {
    return Dictionary{{kTVKPublicKeyHashes, std::move(pins)},
                      {kTVKPublicKeyAlgorithms, std::move(algorithms)},
                      {kTVKEnforcePinning, enforce},
                      {kTVKIncludeSubdomains, true}};
}

Dictionary policyWith(Dictionary base, const std::string& key, Value value) {
    base[key] = std::move(value);
    return base;
}

// The leaf's pin, with the algorithm 0 header as the built-in policy hashes it.
Array leafPins() {
    return Array{hashOf(leafCertificate(KeyKind::Rsa2048), 0)};
}

Array unrelatedPins() {
    return Array{sha256(Data{1, 2, 3})};
}

TEST(PinningDomainMatching, IsAPlainSuffixTest) {
    EXPECT_TRUE(isSubdomain("example.test", "example.test"));
    EXPECT_TRUE(isSubdomain("example.test", "api.example.test"));
    EXPECT_TRUE(isSubdomain("example.test", "xexample.test"));
    EXPECT_FALSE(isSubdomain("example.test", "example.test.evil"));
    EXPECT_FALSE(isSubdomain("api.example.test", "example.test"));
}

TEST(PinningDomainMatching, FindsTheGoverningPolicy) {
    TestRuntime test;
    Dictionary policies{
        {"example.test", policy(unrelatedPins())},
        {"own.example.test", policyWith(policy(unrelatedPins()), kTVKIncludeSubdomains, false)},
        {"flat.test", policyWith(policy(unrelatedPins()), kTVKIncludeSubdomains, false)}};
    EXPECT_EQ(getPinningConfigurationKeyForDomain("example.test", policies), "example.test");
    EXPECT_EQ(getPinningConfigurationKeyForDomain("api.example.test", policies), "example.test");
    EXPECT_EQ(getPinningConfigurationKeyForDomain("xexample.test", policies), "example.test");
    // A host's own entry wins over a parent's, with or without subdomains.
    EXPECT_EQ(getPinningConfigurationKeyForDomain("own.example.test", policies),
              "own.example.test");
    EXPECT_EQ(getPinningConfigurationKeyForDomain("flat.test", policies), "flat.test");
    // Without subdomains a policy governs its own host only.
    EXPECT_EQ(getPinningConfigurationKeyForDomain("api.flat.test", policies), std::nullopt);
    EXPECT_EQ(getPinningConfigurationKeyForDomain("example.org", policies), std::nullopt);
}

TEST(PinningDomainMatching, TheFirstCoveringKeyInKeyOrderWins) {
    TestRuntime test;
    // Keys are visited sorted bytewise: "a.z.example.test" < "example.test" < "z.example.test".
    Dictionary policies{{"example.test", policy(unrelatedPins())},
                        {"z.example.test", policy(unrelatedPins())},
                        {"a.z.example.test", policy(unrelatedPins())}};
    // Not the longest matching key: the first in order.
    EXPECT_EQ(getPinningConfigurationKeyForDomain("x.z.example.test", policies), "example.test");
    EXPECT_EQ(getPinningConfigurationKeyForDomain("x.a.z.example.test", policies),
              "a.z.example.test");
}

TEST(PinningHeaders, EachNumberSelectsItsKeyTypesHeader) {
    TestRuntime test;
    const std::pair<KeyKind, std::int64_t> kinds[] = {
        {KeyKind::Rsa2048, 0}, {KeyKind::Rsa4096, 1}, {KeyKind::EcP256, 2}, {KeyKind::EcP384, 3}};
    for (auto [kind, number] : kinds) {
        SCOPED_TRACE(number);
        X509* certificate = leafCertificate(kind);
        Data spki = subjectPublicKeyInfoOf(certificate);
        Data header(asn1HeaderBytes[number], asn1HeaderBytes[number] + asn1HeaderSizes[number]);
        std::optional<Data> bits =
            TVKSSLPinningHelper::getPublicKeyDataFromCertificate(certificate);
        ASSERT_TRUE(bits.has_value());
        // The header followed by the extracted bits is exactly the key's SubjectPublicKeyInfo.
        Data joined = header;
        joined.insert(joined.end(), bits->begin(), bits->end());
        EXPECT_EQ(joined, spki);
        EXPECT_EQ(*bits, bareKeyOf(certificate));
        EXPECT_EQ(hashOf(certificate, number), sha256(spki));
    }
    EXPECT_EQ((std::array<std::uint32_t, 4>{24, 24, 26, 23}), asn1HeaderSizes);
    EXPECT_EQ(TVKSSLPinningHelper::getPublicKeyDataFromCertificate(nullptr), std::nullopt);
}

TEST(PinningHeaders, AgreesWithPythonCryptography) {
    TestRuntime test;
    X509* certificate = leafCertificate(KeyKind::Rsa2048);
    std::string path = test.root() + "/leaf.pem";
    std::ofstream(path) << testsupport::pemOf(certificate);
    testsupport::CommandResult result = testsupport::runPython(R"(
import base64, hashlib, sys
from cryptography import x509
from cryptography.hazmat.primitives import serialization
cert = x509.load_pem_x509_certificate(open(sys.argv[1], "rb").read())
spki = cert.public_key().public_bytes(serialization.Encoding.DER,
                                      serialization.PublicFormat.SubjectPublicKeyInfo)
print(base64.b64encode(hashlib.sha256(spki).digest()).decode())
)",
                                                               testsupport::shellQuoted(path));
    ASSERT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output, base64Of(hashOf(certificate, 0)) + "\n");
}

TEST(PinCheck, MissingArgumentsAreInvalidInput) {
    TestRuntime test;
    ServerTrust trust = trustFor(leafCertificate(KeyKind::Rsa2048));
    Array algorithms{0};
    Array pins = leafPins();
    EXPECT_EQ(
        TVKSSLPinningHelper::verifyPublicKeyPinForServer(nullptr, testHostname, &algorithms, &pins),
        TVKPinCheckInvalidInput);
    EXPECT_EQ(
        TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, nullptr, &pins),
        TVKPinCheckInvalidInput);
    EXPECT_EQ(TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &algorithms,
                                                               nullptr),
              TVKPinCheckInvalidInput);
    EXPECT_EQ(
        TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &algorithms, &pins),
        TVKPinCheckMatched);
}

TEST(PinCheck, UntrustedChainsAreReportedAsSuch) {
    TestRuntime test;
    Array algorithms{0};
    Array pins = leafPins();
    auto check = [&](const ServerTrust& trust) {
        return TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &algorithms,
                                                                &pins);
    };
    EXPECT_EQ(check(trustFor(testsupport::expiredLeafCertificate())), TVKPinCheckChainNotTrusted);
    EXPECT_EQ(check(trustFor(testsupport::selfSignedLeafCertificate())),
              TVKPinCheckChainNotTrusted);
    // A chain for another host is not trusted for this one, and the reverse.
    EXPECT_EQ(check(trustFor(testsupport::otherHostLeafCertificate())), TVKPinCheckChainNotTrusted);
    EXPECT_EQ(check(trustFor(leafCertificate(KeyKind::Rsa2048), "other.example.test")),
              TVKPinCheckChainNotTrusted);
    // Without the intermediate the chain cannot reach the root.
    std::vector<CertificateRef> leafOnly;
    leafOnly.push_back(retainCertificate(leafCertificate(KeyKind::Rsa2048)));
    ServerTrust incomplete(std::move(leafOnly), testHostname);
    std::vector<CertificateRef> anchors;
    anchors.push_back(retainCertificate(rootCertificate()));
    incomplete.setAnchorCertificates(std::move(anchors));
    EXPECT_EQ(check(incomplete), TVKPinCheckChainNotTrusted);
}

TEST(PinCheck, MatchesTheIntermediateOrTheRoot) {
    TestRuntime test;
    ServerTrust trust = trustFor(leafCertificate(KeyKind::Rsa2048));
    // The root's key is RSA 2048, the intermediate's EC P-384.
    Array rootPins{hashOf(rootCertificate(), 0)};
    Array intermediatePins{hashOf(intermediateCertificate(), 3)};
    Array algorithms{0, 3};
    EXPECT_EQ(TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &algorithms,
                                                               &rootPins),
              TVKPinCheckMatched);
    EXPECT_EQ(TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &algorithms,
                                                               &intermediatePins),
              TVKPinCheckMatched);
    Array unrelated = unrelatedPins();
    EXPECT_EQ(TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &algorithms,
                                                               &unrelated),
              TVKPinCheckNoMatch);
}

TEST(PinCheck, WalksFromTheRootEnd) {
    TestRuntime test;
    ServerTrust trust = trustFor(leafCertificate(KeyKind::Rsa2048));
    // Algorithm 9 has no header, so whichever certificate is reached second fails to hash: the
    // root, pinned under algorithm 0, must be matched before the walk gets there.
    Array algorithms{0, 9};
    Array rootPins{hashOf(rootCertificate(), 0)};
    EXPECT_EQ(TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &algorithms,
                                                               &rootPins),
              TVKPinCheckMatched);
    Array pins = leafPins();
    EXPECT_EQ(
        TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &algorithms, &pins),
        TVKPinCheckHashError);
}

TEST(PinCheck, AlgorithmNamesSelectTheFirstHeader) {
    TestRuntime test;
    Array names{kTVKAlgorithmRsa2048, kTVKAlgorithmRsa4096};
    for (KeyKind kind : {KeyKind::Rsa4096, KeyKind::EcP256}) {
        X509* leaf = leafCertificate(kind);
        ServerTrust trust = trustFor(leaf);
        Array ownHeaderPins{hashOf(leaf, kind == KeyKind::Rsa4096 ? 1 : 2)};
        Array firstHeaderPins{hashOf(leaf, 0)};
        EXPECT_EQ(TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &names,
                                                                   &ownHeaderPins),
                  TVKPinCheckNoMatch);
        EXPECT_EQ(TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &names,
                                                                   &firstHeaderPins),
                  TVKPinCheckMatched);
    }
}

class PinningDecision : public ::testing::Test {
  protected:
    TVKTrustDecision decide(const Dictionary& domainPolicy, const ServerTrust* trust,
                            const std::optional<std::string>& hostname = testHostname) {
        return TVKSSLPinningHelper(Dictionary{{"example.test", domainPolicy}})
            .evaluateTrust(trust, hostname);
    }
    TestRuntime test;
    ServerTrust trust = trustFor(leafCertificate(KeyKind::Rsa2048));
};

TEST_F(PinningDecision, MissingTrustOrHostIsRefused) {
    EXPECT_EQ(decide(policy(leafPins()), nullptr), TVKTrustDecisionRefuse);
    EXPECT_EQ(decide(policy(leafPins()), &trust, std::nullopt), TVKTrustDecisionRefuse);
}

TEST_F(PinningDecision, FollowsThePinCheck) {
    EXPECT_EQ(decide(policy(leafPins()), &trust), TVKTrustDecisionAllow);
    EXPECT_EQ(decide(policy(unrelatedPins()), &trust), TVKTrustDecisionRefuse);
    // A policy without algorithms is invalid input; a number without a header a hash error.
    Dictionary noAlgorithms = policy(leafPins());
    noAlgorithms.erase(kTVKPublicKeyAlgorithms);
    EXPECT_EQ(decide(noAlgorithms, &trust), TVKTrustDecisionRefuse);
    EXPECT_EQ(decide(policy(leafPins(), {7}), &trust), TVKTrustDecisionRefuse);
}

TEST_F(PinningDecision, WithoutEnforcementOnlyTheChainMustBeTrusted) {
    Dictionary unenforced = policy(unrelatedPins(), {0}, false);
    EXPECT_EQ(decide(unenforced, &trust), TVKTrustDecisionAllow);
    ServerTrust expired = trustFor(testsupport::expiredLeafCertificate());
    EXPECT_EQ(decide(unenforced, &expired), TVKTrustDecisionRefuse);
    ServerTrust wrongHost = trustFor(testsupport::otherHostLeafCertificate());
    EXPECT_EQ(decide(unenforced, &wrongHost), TVKTrustDecisionRefuse);
    EXPECT_EQ(decide(policy(unrelatedPins(), {9}, false), &trust), TVKTrustDecisionRefuse);
}

TEST_F(PinningDecision, ExpiresAfterItsDate) {
    Date now = test.runtime().clock().now();
    Dictionary pinned = policy(unrelatedPins());
    EXPECT_EQ(decide(policyWith(pinned, kTVKExpirationDate, now - 1s), &trust),
              TVKTrustDecisionNotPinned);
    Dictionary expiresSoon = policyWith(pinned, kTVKExpirationDate, now + 1s);
    EXPECT_EQ(decide(expiresSoon, &trust), TVKTrustDecisionRefuse);
    test.advance(1);
    EXPECT_EQ(decide(expiresSoon, &trust), TVKTrustDecisionRefuse);
    test.advance(1);
    EXPECT_EQ(decide(expiresSoon, &trust), TVKTrustDecisionNotPinned);
}

TEST_F(PinningDecision, AnExcludedHostIsNotPinned) {
    TVKSSLPinningHelper helper(Dictionary{
        {"example.test", policy(unrelatedPins())},
        {testHostname, Dictionary{{kTVKExcludeSubdomainFromParentPolicy, true}}},
    });
    EXPECT_EQ(helper.evaluateTrust(&trust, testHostname), TVKTrustDecisionNotPinned);
    // A sibling is still governed by the parent, whose pins its correctly issued chain lacks.
    CertificateRef siblingLeaf = testsupport::leafCertificateFor("web.example.test");
    ServerTrust sibling = trustFor(siblingLeaf.get(), "web.example.test");
    EXPECT_EQ(helper.evaluateTrust(&sibling, "web.example.test"), TVKTrustDecisionRefuse);
}

TEST(BuiltInPinningPolicy, PinsTheDefaultDomainWithPlaceholders) {
    TestRuntime test;
    TVKSSLPinningHelper helper;
    const Dictionary& policies = helper.domainPinningPolicies();
    ASSERT_EQ(policies.size(), 1u);
    const auto& [domain, builtIn] = *policies.begin();
    EXPECT_EQ(domain, "tarvikhq.com");
    EXPECT_TRUE(TarvikDomainName.ends_with("." + domain));
    EXPECT_EQ(*builtIn.find(kTVKPublicKeyAlgorithms),
              Value(Array{"TVKAlgorithmRsa2048", "TVKAlgorithmRsa4096"}));
    EXPECT_EQ(*builtIn.find(kTVKEnforcePinning), Value(true));
    EXPECT_EQ(*builtIn.find(kTVKIncludeSubdomains), Value(true));
    EXPECT_EQ(builtIn.find(kTVKExpirationDate), nullptr);
    EXPECT_EQ(builtIn.find(kTVKExcludeSubdomainFromParentPolicy), nullptr);
    // The placeholders are digests of texts, which no key's hash equals.
    Array expected;
    for (std::string text :
         {"Tarvik placeholder pin 1", "Tarvik placeholder pin 2", "Tarvik placeholder pin 3"}) {
        expected.emplace_back(sha256(Data(text.begin(), text.end())));
    }
    EXPECT_EQ(*builtIn.find(kTVKPublicKeyHashes), Value(expected));

    for (const std::string& host :
         {std::string("tarvikhq.com"), TarvikDomainName, std::string("xtarvikhq.com")}) {
        EXPECT_EQ(getPinningConfigurationKeyForDomain(host, policies), "tarvikhq.com") << host;
    }
    // So a correctly issued chain for the default host is refused until real pins are set.
    CertificateRef apiLeaf = testsupport::leafCertificateFor(TarvikDomainName);
    ServerTrust apiTrust = trustFor(apiLeaf.get(), TarvikDomainName);
    EXPECT_EQ(helper.evaluateTrust(&apiTrust, TarvikDomainName), TVKTrustDecisionRefuse);
    EXPECT_EQ(helper.evaluateTrust(&apiTrust, "api.example.org"), TVKTrustDecisionNotPinned);
}

TEST(BuiltInPinningPolicy, TheHostReplacesDomainAndPins) {
    TestRuntime test;
    Data pin = hashOf(leafCertificate(KeyKind::Rsa2048), 0);
    std::string base64 = base64Of(pin);
    EXPECT_FALSE(setPinnedDomain("example.test", {base64, "not base64 at all"}));
    EXPECT_FALSE(setPinnedDomain("example.test", {base64.substr(0, 40) + "AA=="}));
    EXPECT_EQ(TVKSSLPinningHelper().domainPinningPolicies().begin()->first, "tarvikhq.com");

    ASSERT_TRUE(setPinnedDomain("example.test", {base64}));
    TVKSSLPinningHelper helper;
    EXPECT_EQ(helper.domainPinningPolicies().begin()->first, "example.test");
    EXPECT_EQ(*helper.domainPinningPolicies().begin()->second.find(kTVKPublicKeyHashes),
              Value(Array{pin}));
    ServerTrust trust = trustFor(leafCertificate(KeyKind::Rsa2048));
    EXPECT_EQ(helper.evaluateTrust(&trust, testHostname), TVKTrustDecisionAllow);
}

TEST(ServerTrustChains, ReadFromPemAndDer) {
    TestRuntime test;
    X509* leaf = leafCertificate(KeyKind::EcP256);
    std::string pem = testsupport::pemOf(leaf) + testsupport::pemOf(intermediateCertificate());
    std::optional<ServerTrust> fromPem = ServerTrust::fromPem(pem, testHostname);
    ASSERT_TRUE(fromPem.has_value());
    ASSERT_EQ(fromPem->certificateCount(), 2u);
    EXPECT_EQ(X509_cmp(fromPem->certificateAtIndex(0), leaf), 0);
    EXPECT_EQ(X509_cmp(fromPem->certificateAtIndex(1), intermediateCertificate()), 0);
    EXPECT_EQ(fromPem->hostname(), testHostname);

    std::optional<ServerTrust> fromDer = ServerTrust::fromDer(
        {testsupport::derOf(leaf), testsupport::derOf(intermediateCertificate())}, testHostname);
    ASSERT_TRUE(fromDer.has_value());
    EXPECT_EQ(fromDer->certificateCount(), 2u);
    EXPECT_EQ(X509_cmp(fromDer->certificateAtIndex(0), leaf), 0);

    std::string damaged = pem;
    damaged[pem.rfind("-----BEGIN") + 100] = '*';  // not a base64 character
    EXPECT_FALSE(ServerTrust::fromPem(damaged, testHostname).has_value());
    EXPECT_FALSE(ServerTrust::fromPem("no certificate here", testHostname).has_value());
    Data truncated = testsupport::derOf(leaf);
    truncated.pop_back();
    EXPECT_FALSE(ServerTrust::fromDer({truncated}, testHostname).has_value());
    EXPECT_FALSE(ServerTrust::fromDer({}, testHostname).has_value());
}

TEST(ServerTrustChains, EvaluationGivesTheVerifiedChainUpToTheRoot) {
    TestRuntime test;
    std::optional<TrustEvaluation> evaluation =
        trustFor(leafCertificate(KeyKind::Rsa2048)).evaluate();
    ASSERT_TRUE(evaluation.has_value());
    EXPECT_TRUE(evaluation->trusted);
    ASSERT_EQ(evaluation->chain.size(), 3u);
    EXPECT_EQ(X509_cmp(evaluation->chain[0].get(), leafCertificate(KeyKind::Rsa2048)), 0);
    EXPECT_EQ(X509_cmp(evaluation->chain[2].get(), rootCertificate()), 0);

    std::optional<TrustEvaluation> expired =
        trustFor(testsupport::expiredLeafCertificate()).evaluate();
    ASSERT_TRUE(expired.has_value());
    EXPECT_FALSE(expired->trusted);
    EXPECT_EQ(expired->error, X509_V_ERR_CERT_HAS_EXPIRED);
    EXPECT_TRUE(expired->chain.empty());

    // An empty name would switch the host check off, so there is nothing to evaluate.
    EXPECT_FALSE(trustFor(leafCertificate(KeyKind::Rsa2048), "").evaluate().has_value());
}

TEST(ServerTrustChains, TakenFromAVerificationContext) {
    TestRuntime test;
    // What OpenSSL hands a verification callback during a handshake: the peer chain, leaf
    // included, as untrusted certificates.
    STACK_OF(X509)* peerChain = sk_X509_new_null();
    sk_X509_push(peerChain, leafCertificate(KeyKind::Rsa2048));
    sk_X509_push(peerChain, intermediateCertificate());
    X509_STORE* store = X509_STORE_new();
    X509_STORE_CTX* context = X509_STORE_CTX_new();
    ASSERT_EQ(X509_STORE_CTX_init(context, store, leafCertificate(KeyKind::Rsa2048), peerChain), 1);

    std::optional<ServerTrust> trust = ServerTrust::fromStoreContext(context, testHostname);
    X509_STORE_CTX_free(context);
    X509_STORE_free(store);
    sk_X509_free(peerChain);
    ASSERT_TRUE(trust.has_value());
    ASSERT_EQ(trust->certificateCount(), 2u);
    EXPECT_EQ(X509_cmp(trust->certificateAtIndex(1), intermediateCertificate()), 0);
    std::vector<CertificateRef> anchors;
    anchors.push_back(retainCertificate(rootCertificate()));
    trust->setAnchorCertificates(std::move(anchors));
    Array algorithms{0};
    Array pins = leafPins();
    EXPECT_EQ(
        TVKSSLPinningHelper::verifyPublicKeyPinForServer(&*trust, testHostname, &algorithms, &pins),
        TVKPinCheckMatched);
    EXPECT_FALSE(ServerTrust::fromStoreContext(nullptr, testHostname).has_value());
}

TEST(ServerTrustChains, VerifiedAgainstTheConfiguredAuthorities) {
    TestRuntime test;
    std::vector<CertificateRef> chain;
    chain.push_back(retainCertificate(leafCertificate(KeyKind::Rsa2048)));
    chain.push_back(retainCertificate(intermediateCertificate()));
    ServerTrust trust(std::move(chain), testHostname);
    Array algorithms{0};
    Array pins = leafPins();
    auto check = [&] {
        return TVKSSLPinningHelper::verifyPublicKeyPinForServer(&trust, testHostname, &algorithms,
                                                                &pins);
    };
    // The system's authorities do not know the test root.
    EXPECT_EQ(check(), TVKPinCheckChainNotTrusted);

    std::string bundle = test.root() + "/authorities.pem";
    std::ofstream(bundle) << testsupport::pemOf(rootCertificate());
    setTrustedCertificateAuthorities(bundle);
    EXPECT_EQ(check(), TVKPinCheckMatched);

    // A bundle that cannot be read leaves nothing to verify against.
    setTrustedCertificateAuthorities(test.root() + "/missing.pem");
    EXPECT_EQ(check(), TVKPinCheckInvalidInput);
}

TEST(ServerTrustChains, VerificationsOnSeveralThreadsShareTheStore) {
    TestRuntime test;
    std::string bundle = test.root() + "/authorities.pem";
    std::ofstream(bundle) << testsupport::pemOf(rootCertificate());
    setTrustedCertificateAuthorities(bundle);
    TVKSSLPinningHelper helper(Dictionary{{"example.test", policy(leafPins())}});
    // Connections are decided on whichever thread their handshake runs; the store is loaded by
    // the first of them.
    std::atomic<int> allowed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            std::vector<CertificateRef> chain;
            chain.push_back(retainCertificate(leafCertificate(KeyKind::Rsa2048)));
            chain.push_back(retainCertificate(intermediateCertificate()));
            ServerTrust trust(std::move(chain), testHostname);
            if (helper.evaluateTrust(&trust, testHostname) == TVKTrustDecisionAllow) {
                ++allowed;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(allowed, 4);
}

class TrustManagerChallenges : public ::testing::Test {
  protected:
    TrustManagerChallenges() {
        EXPECT_TRUE(setPinnedDomain("example.test",
                                    {base64Of(hashOf(leafCertificate(KeyKind::Rsa2048), 0))}));
    }
    struct Answer {
        int calls = 0;
        AuthChallengeDisposition disposition = -1;
        const ServerTrust* credential = nullptr;
    };
    Answer answer(const AuthenticationChallenge& challenge) {
        Answer answer;
        TVKTrustManager::sharedInstance()->URLSession(
            challenge, [&](AuthChallengeDisposition disposition, const ServerTrust* credential) {
                ++answer.calls;
                answer.disposition = disposition;
                answer.credential = credential;
            });
        return answer;
    }
    TestRuntime test;
    ServerTrust pinned = trustFor(leafCertificate(KeyKind::Rsa2048));
    ServerTrust otherKey = trustFor(leafCertificate(KeyKind::EcP256));
    ServerTrust elsewhere = trustFor(leafCertificate(KeyKind::Rsa2048), "api.example.org");
};

TEST_F(TrustManagerChallenges, DecisionsBecomeDispositions) {
    EXPECT_EQ(TVKTrustManager::sharedInstance(), TVKTrustManager::sharedInstance());
    Answer allowed = answer({AuthenticationMethodServerTrust, &pinned, testHostname});
    EXPECT_EQ(allowed.calls, 1);
    EXPECT_EQ(allowed.disposition, AuthChallengeUseCredential);
    EXPECT_EQ(allowed.credential, &pinned);

    Answer refused = answer({AuthenticationMethodServerTrust, &otherKey, testHostname});
    EXPECT_EQ(refused.calls, 1);
    EXPECT_EQ(refused.disposition, AuthChallengeCancelAuthenticationChallenge);
    EXPECT_EQ(refused.credential, nullptr);

    Answer notPinned = answer({AuthenticationMethodServerTrust, &elsewhere, "api.example.org"});
    EXPECT_EQ(notPinned.calls, 1);
    EXPECT_EQ(notPinned.disposition, AuthChallengePerformDefaultHandling);
    EXPECT_EQ(notPinned.credential, nullptr);
}

TEST_F(TrustManagerChallenges, OtherChallengesGetDefaultHandling) {
    int calls = 0;
    EXPECT_FALSE(TVKTrustManager::sharedInstance()->pinningValidator()->handleChallenge(
        {AuthenticationMethodHTTPBasic, &pinned, testHostname},
        [&](AuthChallengeDisposition, const ServerTrust*) { ++calls; }));
    EXPECT_EQ(calls, 0);
    Answer basic = answer({AuthenticationMethodHTTPBasic, &pinned, testHostname});
    EXPECT_EQ(basic.calls, 1);
    EXPECT_EQ(basic.disposition, AuthChallengePerformDefaultHandling);
    EXPECT_EQ(basic.credential, nullptr);
}

}  // namespace
}  // namespace tarvik
