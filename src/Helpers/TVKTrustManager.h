#pragma once

#include "Helpers/TVKSSLPinningHelper.h"
#include "Platform/AuthenticationChallenge.h"
#include "Platform/TVKHttpTransport.h"

#include <memory>

namespace tarvik {

// The connection delegate of the SDK's API requests: hands every server-trust challenge to its
// pinning validator, made once with the built-in policy.
class TVKTrustManager {
  public:
    static std::shared_ptr<TVKTrustManager> sharedInstance();
    // The shared instance as the trust delegate of the SDK's API requests.
    static ServerTrustDelegate sessionDelegate();

    TVKTrustManager();

    const std::shared_ptr<const TVKSSLPinningHelper>& pinningValidator() const {
        return pinningValidator_;
    }

    // A challenge the validator does not handle gets perform-default-handling and no
    // credential.
    void URLSession(const AuthenticationChallenge& challenge,
                    const ChallengeCompletionHandler& completionHandler) const;

  private:
    const std::shared_ptr<const TVKSSLPinningHelper> pinningValidator_;
};

}  // namespace tarvik
