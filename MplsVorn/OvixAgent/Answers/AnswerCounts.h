#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Answers/RateLimit.h"

namespace OvixAgent {

/// How many answers were sent, and how many there would have been that were suppressed because
/// there were too many.
class AnswerCounts {
  public:
    void sent(AnswerReason reason) noexcept { ++of(reason).sent; }
    void suppressed(AnswerReason reason) noexcept { ++of(reason).suppressed; }

    /// Those above zero, by name: "time exceeded: sent", "LSP echo: suppressed".
    std::vector<std::pair<std::string, std::uint64_t>> named() const;

  private:
    struct Count {
        std::uint64_t sent = 0;
        std::uint64_t suppressed = 0;
    };

    Count& of(AnswerReason reason) noexcept { return counts_[static_cast<std::size_t>(reason)]; }

    std::array<Count, answerReasons> counts_;
};

} // namespace OvixAgent
