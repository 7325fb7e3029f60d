#include "FrameRing.h"

#include <algorithm>

namespace Bench {

namespace {

constexpr std::size_t slot = 256;

} // namespace

FrameRing::FrameRing(const Scenario& scenario)
    : scenario_(&scenario), memory_(frames * slot), placed_(frames) {}

void FrameRing::fill() {
    for (std::size_t i = 0; i < frames; ++i) {
        const std::vector<std::uint8_t>& bytes = scenario_->frames[next_];
        std::uint8_t* at = memory_.data() + i * slot + OvixAgent::frameHeadroom;
        std::copy(bytes.begin(), bytes.end(), at);
        const auto size = static_cast<std::uint32_t>(bytes.size());
        placed_[i] = {at, size, size, OvixAgent::frameHeadroom, scenario_->port, {}};
        next_ = next_ + 1 < scenario_->frames.size() ? next_ + 1 : 0;
    }
}

} // namespace Bench
