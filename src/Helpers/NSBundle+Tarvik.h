#pragma once

#include "Platform/Bundle.h"

namespace tarvik {

// The SDK's own bundle: its images and its version are read from it.
Bundle tarvik_frameworkBundle();

}  // namespace tarvik
