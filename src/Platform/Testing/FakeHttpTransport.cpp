#include "Platform/Testing/FakeHttpTransport.h"

#include <fstream>
#include <sstream>

namespace tarvik::testing {

namespace {

std::string readBody(const std::optional<std::string>& path) {
    if (!path) {
        return {};
    }
    std::ifstream file(*path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

// "https://host:port/path" → "host".
std::string hostOf(const std::string& url) {
    std::size_t start = url.find("://");
    start = start == std::string::npos ? 0 : start + 3;
    std::size_t end = url.find_first_of(":/?", start);
    return url.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

}  // namespace

HttpResult FakeHttpTransport::perform(const HttpRequest& request,
                                      const ServerTrustDelegate& trustDelegate) {
    if (std::optional<std::string> refusal = refusalOf(request, trustDelegate)) {
        return HttpResult::noResponse(*refusal);
    }
    Responder responder;
    {
        std::lock_guard lock(mutex_);
        exchanges_.push_back({request, readBody(request.bodyFilePath)});
        if (!queued_.empty()) {
            HttpResult result = std::move(queued_.front());
            queued_.pop_front();
            return result;
        }
        responder = responder_;
    }
    return responder ? responder(request) : HttpResult::answer(200);
}

std::optional<std::string> FakeHttpTransport::refusalOf(
    const HttpRequest& request, const ServerTrustDelegate& trustDelegate) const {
    TrustMaker makeTrust;
    {
        std::lock_guard lock(mutex_);
        makeTrust = makeTrust_;
    }
    if (!makeTrust) {
        return std::nullopt;
    }
    std::string host = hostOf(request.url);
    std::optional<ServerTrust> trust = makeTrust(host);
    if (!trust) {
        return "no certificate";
    }
    AuthChallengeDisposition disposition = AuthChallengeCancelAuthenticationChallenge;
    trustDelegate(
        {AuthenticationMethodServerTrust, &*trust, host},
        [&](AuthChallengeDisposition answer, const ServerTrust*) { disposition = answer; });
    if (disposition == AuthChallengeUseCredential) {
        return std::nullopt;
    }
    if (disposition == AuthChallengePerformDefaultHandling) {
        std::optional<TrustEvaluation> evaluation = trust->evaluate();
        if (evaluation && evaluation->trusted) {
            return std::nullopt;
        }
        return "certificate verify failed";
    }
    return "the server's trust was refused for " + host;
}

void FakeHttpTransport::setResponder(Responder responder) {
    std::lock_guard lock(mutex_);
    responder_ = std::move(responder);
}

void FakeHttpTransport::enqueue(HttpResult result) {
    std::lock_guard lock(mutex_);
    queued_.push_back(std::move(result));
}

void FakeHttpTransport::presentServerTrust(TrustMaker makeTrust) {
    std::lock_guard lock(mutex_);
    makeTrust_ = std::move(makeTrust);
}

std::vector<FakeHttpTransport::Exchange> FakeHttpTransport::exchanges() const {
    std::lock_guard lock(mutex_);
    return exchanges_;
}

std::size_t FakeHttpTransport::requestCount() const {
    std::lock_guard lock(mutex_);
    return exchanges_.size();
}

}  // namespace tarvik::testing
