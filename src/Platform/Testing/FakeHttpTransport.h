#pragma once

#include "Platform/ServerTrust.h"
#include "Platform/TVKHttpTransport.h"

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tarvik::testing {

// A scripted transport: records every request with the body it would have sent, and answers
// from a queue of results, then from a responder (by default 200 with an empty body).
class FakeHttpTransport : public TVKHttpTransport {
  public:
    struct Exchange {
        HttpRequest request;
        std::string body;  // the body file's bytes when the request was sent
    };
    using Responder = std::function<HttpResult(const HttpRequest&)>;
    using TrustMaker = std::function<std::optional<ServerTrust>(const std::string& host)>;

    HttpResult perform(const HttpRequest& request,
                       const ServerTrustDelegate& trustDelegate) override;

    void setResponder(Responder responder);
    // Answers the next requests with these results, in order.
    void enqueue(HttpResult result);
    // Before answering, presents the chain `makeTrust` gives for the request's host to the
    // delegate, as a handshake would; a cancelled or unverified chain gives no response.
    void presentServerTrust(TrustMaker makeTrust);

    std::vector<Exchange> exchanges() const;
    std::size_t requestCount() const;

  private:
    std::optional<std::string> refusalOf(const HttpRequest& request,
                                         const ServerTrustDelegate& trustDelegate) const;

    mutable std::mutex mutex_;
    std::vector<Exchange> exchanges_;
    std::deque<HttpResult> queued_;
    Responder responder_;
    TrustMaker makeTrust_;
};

}  // namespace tarvik::testing
