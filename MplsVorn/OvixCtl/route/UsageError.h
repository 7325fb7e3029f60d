#pragma once

#include <stdexcept>

namespace OvixCtl {

/// A command line that asks for nothing. `what()` says which word is wrong, and what was expected.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace OvixCtl
