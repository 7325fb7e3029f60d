#pragma once

#include <stdexcept>

namespace Tessel {

/// A value outside the range its type allows.
class RangeError : public std::range_error {
  public:
    using std::range_error::range_error;
};

/// A shared table holds a record, count or index that cannot be right.
class CorruptionDetected : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace Tessel
