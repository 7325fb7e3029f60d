#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>

namespace OvixAgent {

/// A progress line on a terminal: nothing in the first tenth of a second, then at most ten updates
/// a second.
class CliProgress {
  public:
    using Clock = std::chrono::steady_clock;

    /// A line on `stream`, or none when `isShown` is false.
    CliProgress(std::FILE* stream, bool isShown, Clock::time_point start = Clock::now())
        : stream_(stream), isShown_(isShown), shownAt_(start) {}

    /// A line on standard error if that is a terminal and `quiet` is false.
    static CliProgress onTerminal(bool quiet);

    /// To be called once per frame; true once in 256 calls, when it is worth calling `show`.
    bool isDue() { return isShown_ && (++calls_ % callsPerUpdate) == 0; }

    /// Shows `frames` done and the `part` (0 to 1) of the input read, unless it is too early.
    void show(std::uint64_t frames, double part, Clock::time_point now = Clock::now());

    /// Removes the line. To be called before anything else is printed.
    void clear();

  private:
    static constexpr std::uint32_t callsPerUpdate = 256;

    std::FILE* stream_;
    bool isShown_;
    bool hasLine_ = false;
    std::uint32_t calls_ = 0;
    Clock::time_point shownAt_;
};

} // namespace OvixAgent
