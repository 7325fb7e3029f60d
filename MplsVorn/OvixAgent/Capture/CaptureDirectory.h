#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "Capture/CaptureWriter.h"

namespace OvixAgent {

/// The captures that the agent writes: `<name>.pcap` for each name, in one directory. Every one is
/// there from the beginning, even if nothing goes into it.
class CaptureDirectory {
  public:
    /// Creates the directory with its parents, and the captures. Throws CaptureError when it
    /// cannot, or, before anything is touched, when a capture would overwrite one of `inputs`.
    CaptureDirectory(const std::string& directory, std::span<const std::string> names,
                     std::span<const std::string> inputs, TimePrecision precision);

    /// `index` counts the names given.
    void write(std::size_t index, const Frame& frame) { writers_[index].write(frame); }
    const CaptureWriter& writer(std::size_t index) const { return writers_[index]; }

    /// Writes out what is buffered; throws CaptureError for the first capture that fails, after
    /// trying them all.
    void close();

  private:
    std::vector<CaptureWriter> writers_;
};

} // namespace OvixAgent
