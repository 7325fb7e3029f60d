#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>

namespace OvixAgent {

/// One line on a terminal that tells how far a run has come. It shows nothing in the first tenth of
/// a second, and then at most ten updates a second.
class CliProgress {
  public:
    using Clock = std::chrono::steady_clock;

    /// A line on `stream`, or none when `isShown` is false.
    CliProgress(std::FILE* stream, bool isShown, Clock::time_point start = Clock::now())
        : stream_(stream), isShown_(isShown), shownAt_(start) {}

    /// A line on standard error if that is a terminal and `quiet` is false.
    static CliProgress onTerminal(bool quiet);

    /// Call once per frame: whether it is worth looking at the clock now.
    bool isDue() { return isShown_ && (++calls_ % callsPerLook) == 0; }

    /// Shows `frames` done and the `part` (0 to 1) of the input read, unless it is too early.
    void show(std::uint64_t frames, double part, Clock::time_point now = Clock::now());

    /// Removes the line. To be called before anything else is printed.
    void clear();

  private:
    static constexpr std::uint32_t callsPerLook = 256;

    std::FILE* stream_;
    bool isShown_;
    bool hasLine_ = false;
    std::uint32_t calls_ = 0;
    Clock::time_point shownAt_;
};

} // namespace OvixAgent
