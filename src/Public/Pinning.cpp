#include <tarvik/Pinning.h>

#include "Helpers/TVKSSLPinningHelper.h"
#include "Platform/TrustStore.h"

namespace tarvik {

bool setPinnedDomain(const std::string& domain, const std::vector<std::string>& base64Pins) {
    return TVKSSLPinningHelper::setBuiltInPolicy(domain, base64Pins);
}

void setTrustedCertificateAuthorities(const std::string& bundleFile, const std::string& folder) {
    TrustStore::sharedInstance()->setLocations(bundleFile, folder);
}

}  // namespace tarvik
