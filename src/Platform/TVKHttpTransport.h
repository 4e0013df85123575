#pragma once

#include <tarvik/Value.h>

#include "Platform/AuthenticationChallenge.h"
#include "Platform/HttpRequest.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tarvik {

struct HttpResponse {
    long statusCode = 0;
    Data body;
};

// What one request came to: the server's answer, or none when there was no answer at all
// (no connection, a refused server trust, a time-out), with the reason.
struct HttpResult {
    std::optional<HttpResponse> response;
    std::optional<std::string> error;

    static HttpResult answer(long statusCode, Data body = {}) {
        return {HttpResponse{statusCode, std::move(body)}, std::nullopt};
    }
    static HttpResult noResponse(std::string error) { return {std::nullopt, std::move(error)}; }
};

// Decides on the server's chain during the TLS handshake, as a connection's delegate does:
// use-credential goes on, cancel abandons the connection, perform-default-handling leaves it
// to the ordinary certificate verification against the trust store.
using ServerTrustDelegate =
    std::function<void(const AuthenticationChallenge&, const ChallengeCompletionHandler&)>;

// Performs HTTP requests. A transport only translates: it reports the status and body, or the
// lack of an answer; what they mean is decided by its callers.
class TVKHttpTransport {
  public:
    virtual ~TVKHttpTransport() = default;

    // Sends `request` (its body streamed from `bodyFilePath` when set) on the calling thread and
    // returns once the answer or the failure is known. Safe to call from several threads.
    virtual HttpResult perform(const HttpRequest& request,
                               const ServerTrustDelegate& trustDelegate) = 0;
};

// The transport of the platform the library is built for.
std::unique_ptr<TVKHttpTransport> makePlatformHttpTransport();

}  // namespace tarvik
