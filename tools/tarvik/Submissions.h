#pragma once

#include "Models/TVKSubmission.h"

#include <memory>
#include <optional>
#include <string>

namespace tarvik::tool {

// The submission of that identifier in any status folder of either kind; null when none.
std::shared_ptr<TVKSubmission> findSubmission(const std::string& uuid);

// The API key the SDK saved with the submission's properties, so that what the tool builds or
// sends is what the SDK would.
std::optional<std::string> savedApiKey(const TVKSubmission& submission);

}  // namespace tarvik::tool
