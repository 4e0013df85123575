#pragma once

#include <stdexcept>
#include <string>

namespace tarvik {

// A required argument was missing: a programming error in the caller.
class ParameterAssertionError : public std::invalid_argument {
  public:
    explicit ParameterAssertionError(const std::string& parameterName)
        : std::invalid_argument("Invalid parameter not satisfying: " + parameterName) {}
};

// An operation that only a subclass may perform was called on its base class.
class InternalInconsistencyError : public std::logic_error {
  public:
    InternalInconsistencyError()
        : std::logic_error("this should never be called, should use subclass version") {}
};

}  // namespace tarvik
