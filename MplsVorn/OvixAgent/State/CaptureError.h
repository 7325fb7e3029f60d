#pragma once

#include <stdexcept>

namespace OvixAgent {

/// A capture that cannot be read or written; `what()` begins with the file's name.
class CaptureError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace OvixAgent
