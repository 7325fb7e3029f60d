#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace OvixAgent {

/// Labels as label operations and via records hold them: three bytes each, most significant first.
inline std::vector<std::uint8_t> packedLabels(std::span<const std::uint32_t> labels) {
    std::vector<std::uint8_t> packed;
    packed.reserve(3 * labels.size());
    for (const std::uint32_t label : labels) {
        packed.insert(packed.end(),
                      {static_cast<std::uint8_t>(label >> 16U),
                       static_cast<std::uint8_t>(label >> 8U), static_cast<std::uint8_t>(label)});
    }
    return packed;
}

} // namespace OvixAgent
