#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

#include "Posix/FileDescriptor.h"

namespace OvixLog {

/// Writes lines to a descriptor that may be anything: a terminal, a file on a full disk, a pipe
/// that nobody reads or whose reader has gone. A line that cannot be written is lost.
class LineOutput {
  public:
    /// A line is no longer, its end included; a pipe takes so much whole or not at all (PIPE_BUF).
    static constexpr std::size_t mostBytes = 4096;
    /// How long a reader that lags behind is waited for; once, until it has read again.
    static constexpr std::chrono::milliseconds patience{100};

    /// The descriptor stays the caller's, and as it is: others may share it.
    explicit LineOutput(int descriptor) noexcept;

    /// Writes the line, which ends with a newline, cut to its longest. False when it is lost.
    bool write(std::string_view line) noexcept;

  private:
    enum class Way : unsigned char { file, pollFirst, nonBlocking, socket };

    bool isReady() noexcept;

    int descriptor_;
    Way way_ = Way::file;
    Posix::FileDescriptor own_; ///< the same pipe or terminal opened again, non-blocking
    bool isStuck_ = false;      ///< the last line was lost
};

} // namespace OvixLog
