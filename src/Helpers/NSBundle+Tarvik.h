#pragma once

#include "Platform/Bundle.h"

#include <string>

namespace tarvik {

// The SDK's own bundle: its images and its version are read from it.
Bundle tarvik_frameworkBundle();

// The host's translation of one of the reporter's texts, looked up by its English text with no
// default and no table: a text the host has not translated shows as the key itself.
std::string tarvik_localizedString(const std::string& key);

}  // namespace tarvik
