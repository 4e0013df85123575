#pragma once

#include "Platform/ServerTrust.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tarvik {

// How a connection asks its delegate to authenticate: the server's trust during the TLS
// handshake, or a credential the server asks for.
inline const std::string AuthenticationMethodServerTrust = "NSURLAuthenticationMethodServerTrust";
inline const std::string AuthenticationMethodHTTPBasic = "NSURLAuthenticationMethodHTTPBasic";

struct AuthenticationChallenge {
    std::string authenticationMethod;
    // The server's chain; set for a server-trust challenge only.
    const ServerTrust* serverTrust = nullptr;
    std::optional<std::string> host;
};

// What the delegate answers.
using AuthChallengeDisposition = std::int64_t;
// Go on, with the given trust as the credential.
inline constexpr AuthChallengeDisposition AuthChallengeUseCredential = 0;
// Let the connection do what it would do without a delegate (its ordinary certificate check).
inline constexpr AuthChallengeDisposition AuthChallengePerformDefaultHandling = 1;
// Abandon the connection.
inline constexpr AuthChallengeDisposition AuthChallengeCancelAuthenticationChallenge = 2;

// Receives the disposition and, for use-credential only, the trust to proceed with.
using ChallengeCompletionHandler =
    std::function<void(AuthChallengeDisposition disposition, const ServerTrust* credential)>;

}  // namespace tarvik
