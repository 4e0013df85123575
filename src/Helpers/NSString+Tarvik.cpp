#include "Helpers/NSString+Tarvik.h"

#include <openssl/evp.h>

#include <cstring>

namespace tarvik {

std::string tarvik_MD5Digest(const std::string& text) {
    // Only the bytes before the first NUL count, as for a C string.
    size_t length = std::strlen(text.c_str());
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    EVP_Digest(text.data(), length, digest, &digestLength, EVP_md5(), nullptr);
    static const char* digits = "0123456789ABCDEF";
    std::string hex;
    for (unsigned int i = 0; i < digestLength; ++i) {
        hex += digits[digest[i] >> 4];
        hex += digits[digest[i] & 0x0F];
    }
    return hex;
}

}  // namespace tarvik
