#pragma once

#include "Models/TVKSubmission.h"

#include <memory>
#include <string>

namespace tarvik::tool {

// The submission of that identifier in any status folder of either kind; null when none.
std::shared_ptr<TVKSubmission> findSubmission(const std::string& uuid);

}  // namespace tarvik::tool
