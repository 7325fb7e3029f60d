#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace OvixAgent {

/// What the page shows of an agent, as JSON, asked for at its control socket. However much the
/// agent has, an answer is bounded: the page shows the beginning and asks for more. Used by one
/// thread.
class PageData {
  public:
    static constexpr std::size_t mostPorts = 256;
    static constexpr std::size_t mostNeighbours = 1024;
    static constexpr std::size_t mostLabels = 20;
    static constexpr std::size_t framesAtOnce = 50;
    static constexpr std::size_t setsAtOnce = 20;

    /// `control` is the path of a socket that is served.
    explicit PageData(std::string control) : control_(std::move(control)) {}

    /// {"status", "fates", "ports", "neighbours", "labels", "wanted"}: the answers to `status`,
    /// `fates`, `ports`, `neighbours`, `top-labels` and `drops-by-neighbour`; null where there was
    /// none.
    std::string now() const;
    /// {"frames", "more"}: the newest frames that the recorder has, without their bytes, whose
    /// reason has this in it; all that were not punted when it is empty, and all when it is "*".
    /// Only those before a sequence number unless it is 0.
    std::string frames(std::uint64_t before, const std::string& reason) const;
    /// The answer to `weighted-sets`, from a label on.
    std::string sets(std::uint64_t from) const;

  private:
    /// null when there is none.
    std::string answerTo(const std::string& request) const;

    /// Whoever asks without end takes no more than a fifth of the agent's time: it is asked again
    /// when it has rested four times as long as it has worked, but for half a second at the most.
    class Turn {
      public:
        explicit Turn(const PageData& data);
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn();

      private:
        const PageData* data_;
        std::chrono::steady_clock::time_point began_;
    };

    std::string control_;
    mutable std::chrono::steady_clock::time_point next_{}; ///< not to be asked before
};

} // namespace OvixAgent
