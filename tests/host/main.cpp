// A host application for tests of what is process-wide (console capture, the uncaught-exception
// handler), of what the SDK leaves on disk (queued submissions) and of delivery to a collector:
// it starts the SDK and then plays the scenario named by its first argument.

#include "DeliveryScenario.h"

#include <tarvik/Host.h>
#include <tarvik/Pinning.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/TVKSSLPinningHelper.h"
#include "Models/TVKEventSubmission.h"
#include "Platform/JsonValue.h"
#include "Platform/Runtime.h"
#include "Platform/TVKHttpTransport.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void writeAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            std::abort();
        }
        done += static_cast<size_t>(n);
    }
}

// Lines of lower-case text on standard output and upper-case text on standard error, so that a
// reader can tell the streams apart in the shared system log.
void burst(int lines) {
    for (int i = 0; i < lines; ++i) {
        writeAll(STDOUT_FILENO, "out line " + std::string(i % 50, 'x') + " end\n");
        writeAll(STDERR_FILENO, "ERR LINE " + std::string(i % 70, 'Y') + " END\n");
    }
    // Writes far bigger than a pipe's atomic size, and text without a final newline.
    writeAll(STDOUT_FILENO, std::string(30000, 'z'));
    writeAll(STDERR_FILENO, std::string(20000, 'Q'));
    std::printf("stdio text without newline");
    std::fprintf(stderr, "STDIO ERROR TEXT");
}

// `count` events recorded and queued as the SDK does it, with the session's user properties and
// the host's custom properties saved beside each; prints each identifier on a line.
int queueEvents(int count) {
    tarvik::Tarvik& sdk = tarvik::Tarvik::sharedInstance();
    sdk.setString("gold", "plan");
    sdk.setIntValue(3, "cart_items");
    sdk.setUserIdentifier("user-42");
    // Something in each of the three logs, as a session that ran a while has: a tracked
    // interaction, a debug record and console output (delivered before the logs are copied).
    tarvik::TVKLogger::logMessage("tapped checkout");
    TARVIK_LOG(1, "queueing {} events", count);
    std::fprintf(stderr, "host: queueing %d events\n", count);
    std::fflush(stderr);
    tarvik::Runtime::current().platform().consoleCapture().flush();

    std::vector<std::shared_ptr<tarvik::TVKEventSubmission>> events;
    // Counted on the main thread; shared, since a gathering that is late outlives this call.
    auto gathered = std::make_shared<int>(0);
    for (int i = 0; i < count; ++i) {
        auto event = tarvik::TVKEventSubmission::create();
        event->saveEventSubmissionData({{"message", fmt::format("event {}", i)},
                                        {"index", i},
                                        {"checkout", tarvik::Dictionary{{"step", "payment"}}}});
        event->saveMetadata(sdk.metadata());
        event->saveUserProperties(sdk.createTarvikProperties());
        event->copyAllFilesWithCompletionHandler([gathered](auto) {
            tarvik::Runtime::current().mainQueue().async([gathered] { ++*gathered; });
        });
        events.push_back(event);
    }
    tarvik::runMainLoop(30, [&] { return *gathered == count; });
    if (*gathered != count) {
        std::fprintf(stderr, "only %d of %d submissions gathered their files\n", *gathered, count);
        return 1;
    }
    for (const auto& event : events) {
        event->setSubmissionStatus(tarvik::TVKSubmissionStatusQueued);
        std::printf("%s\n", event->uuid().c_str());
    }
    return 0;
}

// ---- fetch: one request through the platform's HTTPS transport, with the server's chain
// decided by a pinning policy read from a JSON file:
//   fetch --url URL --policy FILE [--ca-bundle FILE] [--method M] [--body FILE]
//         [--header "Name: value"]... [--timeout SECONDS]
// The policy file maps each domain to its policy, with the pins as base64 text and the
// expiration date as "YYYY-MM-DDTHH:MM:SSZ". Prints one JSON line: the status or the reason
// there was no response, and the disposition of every trust challenge the handshake raised.

std::optional<tarvik::Data> base64Decoded(const std::string& text) {
    if (text.empty() || text.size() % 4 != 0) {
        return std::nullopt;
    }
    tarvik::Data decoded(text.size() / 4 * 3);
    int length =
        EVP_DecodeBlock(decoded.data(), reinterpret_cast<const unsigned char*>(text.data()),
                        static_cast<int>(text.size()));
    if (length < 0) {
        return std::nullopt;
    }
    // EVP_DecodeBlock counts the padding as zero bytes.
    std::size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
    decoded.resize(static_cast<std::size_t>(length) - padding);
    return decoded;
}

std::optional<tarvik::Date> isoDate(const std::string& text) {
    std::tm fields{};
    std::istringstream input(text);
    input >> std::get_time(&fields, "%Y-%m-%dT%H:%M:%SZ");
    if (input.fail()) {
        return std::nullopt;
    }
    return std::chrono::system_clock::from_time_t(timegm(&fields));
}

// The policies as the pinning helper takes them: pins as data and dates as dates.
std::optional<tarvik::Dictionary> pinningPolicies(const tarvik::Value& json) {
    const tarvik::Dictionary* domains = json.asDictionary();
    if (!domains) {
        return std::nullopt;
    }
    tarvik::Dictionary policies;
    for (const auto& [domain, value] : *domains) {
        const tarvik::Dictionary* given = value.asDictionary();
        if (!given) {
            return std::nullopt;
        }
        tarvik::Dictionary policy = *given;
        if (const tarvik::Value* pins = value.find(tarvik::kTVKPublicKeyHashes);
            pins && pins->asArray()) {
            tarvik::Array decoded;
            for (const tarvik::Value& pin : *pins->asArray()) {
                std::optional<tarvik::Data> bytes =
                    pin.asString() ? base64Decoded(*pin.asString()) : std::nullopt;
                if (!bytes) {
                    return std::nullopt;
                }
                decoded.emplace_back(std::move(*bytes));
            }
            policy[tarvik::kTVKPublicKeyHashes] = std::move(decoded);
        }
        if (const tarvik::Value* date = value.find(tarvik::kTVKExpirationDate)) {
            std::optional<tarvik::Date> expiration =
                date->asString() ? isoDate(*date->asString()) : std::nullopt;
            if (!expiration) {
                return std::nullopt;
            }
            policy[tarvik::kTVKExpirationDate] = *expiration;
        }
        policies.emplace(domain, std::move(policy));
    }
    return policies;
}

int fetch(const std::vector<std::string>& arguments) {
    tarvik::HttpRequest request;
    std::string policyPath;
    std::string caBundle;
    for (std::size_t i = 0; i + 1 < arguments.size(); i += 2) {
        const std::string& option = arguments[i];
        const std::string& value = arguments[i + 1];
        if (option == "--url") {
            request.url = value;
        } else if (option == "--policy") {
            policyPath = value;
        } else if (option == "--ca-bundle") {
            caBundle = value;
        } else if (option == "--method") {
            request.method = value;
        } else if (option == "--body") {
            request.bodyFilePath = value;
        } else if (option == "--timeout") {
            request.timeoutInterval = std::atof(value.c_str());
        } else if (option == "--header" && value.find(": ") != std::string::npos) {
            std::size_t colon = value.find(": ");
            request.headers.emplace_back(value.substr(0, colon), value.substr(colon + 2));
        } else {
            std::fprintf(stderr, "fetch: unknown option %s\n", option.c_str());
            return 2;
        }
    }
    if (arguments.size() % 2 != 0 || request.url.empty() || policyPath.empty()) {
        std::fprintf(stderr, "fetch: needs --url and --policy, each option with a value\n");
        return 2;
    }
    std::ifstream policyFile(policyPath);
    std::stringstream policyText;
    policyText << policyFile.rdbuf();
    std::optional<tarvik::Value> policyJson = tarvik::json::parse(policyText.str());
    std::optional<tarvik::Dictionary> policies =
        policyJson ? pinningPolicies(*policyJson) : std::nullopt;
    if (!policies) {
        std::fprintf(stderr, "fetch: %s is not a pinning policy\n", policyPath.c_str());
        return 2;
    }
    if (!caBundle.empty()) {
        tarvik::setTrustedCertificateAuthorities(caBundle);
    }

    const tarvik::TVKSSLPinningHelper helper(std::move(*policies));
    nlohmann::json dispositions = nlohmann::json::array();
    tarvik::ServerTrustDelegate delegate = [&](const tarvik::AuthenticationChallenge& challenge,
                                               const tarvik::ChallengeCompletionHandler& handler) {
        auto recorded = [&](tarvik::AuthChallengeDisposition disposition,
                            const tarvik::ServerTrust* credential) {
            dispositions.push_back(disposition);
            handler(disposition, credential);
        };
        // As the SDK's trust manager: what the pinning helper does not handle gets the
        // ordinary verification.
        if (!helper.handleChallenge(challenge, recorded)) {
            recorded(tarvik::AuthChallengePerformDefaultHandling, nullptr);
        }
    };
    tarvik::HttpResult result = tarvik::makePlatformHttpTransport()->perform(request, delegate);

    nlohmann::json line;
    if (result.response) {
        line["status"] = result.response->statusCode;
        line["body"] = std::string(result.response->body.begin(), result.response->body.end());
    } else {
        line["no_response"] = result.error.value_or("");
    }
    line["challenges"] = dispositions;
    std::printf("%s\n",
                line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    return 0;
}

void announceThrow() {
    std::printf("THROWING AT %.6f\n", monotonicSeconds());
    std::fflush(stdout);
}

}  // namespace

// External linkage, so that the stack frames can name it.
[[noreturn]] __attribute__((noinline)) void throwingFunction(const std::string& reason) {
    throw std::runtime_error(reason);
}

int main(int argc, char** argv) {
    std::string scenario = argc > 1 ? argv[1] : "";
    if (scenario == "fetch") {
        // Before the SDK starts, so that no request of its own runs beside this one.
        return fetch(std::vector<std::string>(argv + 2, argv + argc));
    }
    if (scenario == "record-events" || scenario == "deliver") {
        // These configure the service and start the SDK themselves.
        return runDeliveryScenario(scenario, std::vector<std::string>(argv + 2, argv + argc));
    }
    tarvik::setMainBundleInfo({{"CFBundleIdentifier", "com.tarvikhq.testhost"},
                               {"CFBundleExecutable", "tarvik_test_host"}});
    tarvik::Tarvik::startWithAPIKey("test-key", tarvik::TarvikProcessTypeManual, false);

    if (scenario == "burst") {
        burst(argc > 2 ? std::atoi(argv[2]) : 2000);
        return 0;
    }
    if (scenario == "queue-events") {
        return queueEvents(argc > 2 ? std::atoi(argv[2]) : 1);
    }
    if (scenario == "unicode") {
        writeAll(STDOUT_FILENO, "caf\xC3\xA9 \xF0\x9F\x98\x80 na\xC3\xAFve\n");
        writeAll(STDERR_FILENO, "bad \xFF byte\n");
        return 0;
    }
    if (scenario == "crash") {
        // Output right before the exception must still reach the system log.
        for (int i = 0; i < 200; ++i) {
            std::fprintf(stderr, "LAST WORDS %d\n", i);
        }
        announceThrow();
        throwingFunction("boom from the test host");
    }
    if (scenario == "crash-steady-output") {
        // Standard error keeps talking every 0.8 s, three times: the handler waits it out.
        std::thread talker([] {
            for (int i = 0; i < 3; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(800));
                std::fprintf(stderr, "STILL TALKING %d AT %.6f\n", i, monotonicSeconds());
            }
        });
        talker.detach();
        announceThrow();
        throwingFunction("boom while talking");
    }
    if (scenario == "crash-on-thread") {
        std::thread worker([] {
            announceThrow();
            throwingFunction("boom on a worker thread");
        });
        worker.join();
    }
    std::fprintf(stderr, "unknown scenario '%s'\n", scenario.c_str());
    return 2;
}
