#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace tarvik {

// Every failure of the zip layer. `error` is the minizip result code behind it, 0 when the
// failure is not one.
class Tarvik_ZipException : public std::runtime_error {
  public:
    explicit Tarvik_ZipException(const std::string& reason);
    Tarvik_ZipException(std::int64_t error, const std::string& reason);

    const std::string& name() const;  // always "ZipException"
    std::string reason() const { return what(); }
    std::int64_t error() const { return error_; }

  private:
    std::int64_t error_;
};

}  // namespace tarvik
