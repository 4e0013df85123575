#include <tarvik/Host.h>

#include "Platform/Runtime.h"

namespace tarvik {

void runMainLoop(double seconds, const std::function<bool()>& done) {
    Runtime::current().platform().runMainLoop(
        seconds, done ? done : [] { return false; });
}

void setMainBundleInfo(Dictionary info) {
    Runtime::current().platform().setMainBundleInfo(std::move(info));
}

void setUserLocation(double latitude, double longitude) {
    Runtime::current().platform().device().setUserLocation({latitude, longitude});
}

void setLocalizationDomain(std::optional<std::string> domain) {
    Runtime::current().platform().setLocalizationDomain(std::move(domain));
}

}  // namespace tarvik
