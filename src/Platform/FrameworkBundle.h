#pragma once

#include "Platform/Bundle.h"

namespace tarvik {

// The SDK's own bundle: its version comes from the build, its resources from `resourcePath`.
Bundle makeFrameworkBundle(const std::string& resourcePath);

// Where the SDK's resources are: $TARVIK_RESOURCES_DIR, else the build tree's Resources, where
// the build renders the images of Resources/*.svg.
std::string defaultResourcesDirectory();

}  // namespace tarvik
