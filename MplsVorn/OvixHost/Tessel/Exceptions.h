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

/// What was being read from a shared table has been replaced meanwhile: the reader was held up for
/// long. Refreshing and reading again will do.
class SnapshotLost : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The tables have a writer already.
class TablesBusy : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace Tessel
