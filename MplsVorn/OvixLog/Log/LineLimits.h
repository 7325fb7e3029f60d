#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

namespace OvixLog {

/// How often a line of each kind may be written: a burst, then one a second. Whoever makes the
/// program log, by what it sends, must not decide how much is logged.
class LineLimits {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr unsigned burst = 20;
    static constexpr std::chrono::seconds perLine{1};

    /// Lines of one kind that were not admitted.
    struct LeftOut {
        std::string_view kind;
        std::uint64_t lines = 0;
    };

    /// Whether a line may be written; one that may not is counted. `kind` is a literal that says in
    /// a few words what such lines are about. Lines of the empty kind are always admitted.
    bool admit(std::string_view kind, Clock::time_point now = Clock::now());

    /// What has been left out since the last call.
    std::vector<LeftOut> takeLeftOut();

  private:
    struct Kind {
        Clock::time_point dueAt{}; ///< when all lines so far would have been due, one a second
        std::uint64_t leftOut = 0;
    };

    std::map<std::string_view, Kind> kinds_;
};

} // namespace OvixLog
