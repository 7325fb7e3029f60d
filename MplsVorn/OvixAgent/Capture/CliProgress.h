#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace OvixAgent {

/// A progress line on a terminal: nothing in the first tenth of a second, then at most ten updates
/// a second.
class CliProgress {
  public:
    using Clock = std::chrono::steady_clock;

    /// A line on `stream`, or none when `isShown` is false.
    CliProgress(std::FILE* stream, bool isShown, Clock::time_point start = Clock::now(),
                const char* unit = "frames")
        : stream_(stream), isShown_(isShown), unit_(unit), shownAt_(start) {}

    /// A line on standard error if that is a terminal and `quiet` is false. `unit` is what is
    /// counted: frames, or something else of which there are as many.
    static CliProgress onTerminal(bool quiet, const char* unit = "frames");

    /// To be called with the number of frames since the last call; true once in 256 frames, when it
    /// is worth calling `show`.
    bool isDue(std::size_t frames) noexcept {
        frames_ += isShown_ ? frames : 0;
        const bool isDue = frames_ >= framesPerUpdate;
        frames_ -= isDue ? frames_ : 0;
        return isDue;
    }

    /// Shows `frames` done and the `part` (0 to 1) of the input read, unless it is too early.
    void show(std::uint64_t frames, double part, Clock::time_point now = Clock::now());

    /// Removes the line. To be called before anything else is printed.
    void clear();

  private:
    static constexpr std::size_t framesPerUpdate = 256;

    void print(const std::string& text);

    std::FILE* stream_;
    bool isShown_;
    const char* unit_;
    bool hasLine_ = false;
    std::size_t frames_ = 0;
    Clock::time_point shownAt_;
};

} // namespace OvixAgent
