#pragma once

#include <stdexcept>

namespace Tessel {

/// A value outside the range its type allows.
class RangeError : public std::range_error {
  public:
    using std::range_error::range_error;
};

/// A shared table holds an invalid record, count or index.
class CorruptionDetected : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What was being read from a shared table has been replaced meanwhile: the reader was held up for
/// long. The remedy is to refresh and read again.
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
