#include "Helpers/TVKTrustManager.h"

#include "Platform/Runtime.h"

namespace tarvik {

std::shared_ptr<TVKTrustManager> TVKTrustManager::sharedInstance() {
    return Runtime::current().sharedInstance<TVKTrustManager>();
}

ServerTrustDelegate TVKTrustManager::sessionDelegate() {
    return [manager = sharedInstance()](const AuthenticationChallenge& challenge,
                                        const ChallengeCompletionHandler& completionHandler) {
        manager->URLSession(challenge, completionHandler);
    };
}

TVKTrustManager::TVKTrustManager() : pinningValidator_(std::make_shared<TVKSSLPinningHelper>()) {}

void TVKTrustManager::URLSession(const AuthenticationChallenge& challenge,
                                 const ChallengeCompletionHandler& completionHandler) const {
    if (!pinningValidator_->handleChallenge(challenge, completionHandler)) {
        completionHandler(AuthChallengePerformDefaultHandling, nullptr);
    }
}

}  // namespace tarvik
