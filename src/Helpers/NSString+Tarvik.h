#pragma once

#include <string>

namespace tarvik {

// The MD5 digest of the text's UTF-8 bytes up to its first NUL byte, as 32 upper-case
// hexadecimal digits. The event settings list muted titles in this form.
std::string tarvik_MD5Digest(const std::string& text);

}  // namespace tarvik
