#include "Helpers/Tarvik_ZipException.h"

namespace tarvik {

Tarvik_ZipException::Tarvik_ZipException(const std::string& reason)
    : Tarvik_ZipException(0, reason) {}

Tarvik_ZipException::Tarvik_ZipException(std::int64_t error, const std::string& reason)
    : std::runtime_error(reason), error_(error) {}

const std::string& Tarvik_ZipException::name() const {
    static const std::string kName = "ZipException";
    return kName;
}

}  // namespace tarvik
