#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "Lumo/IpGenAddr.h"
#include "State/Frame.h"
#include "State/PortTable.h"
#include "Wire/View.h"

namespace OvixAgent {

/// Which frames are traced, and how many; what is unset or empty is not asked.
struct TraceFilter {
    std::optional<PortIndex> port;           ///< that they come in at, or a sub-interface of it
    std::optional<std::uint32_t> label;      ///< anywhere in their stack
    std::optional<Lumo::IpGenPrefix> prefix; ///< of their IP destination, beneath labels or not
    std::string reason;                      ///< a part of that for which they go nowhere
    std::uint64_t limit = 100;
    std::chrono::seconds time{60};

    /// What is known before a frame is processed: all but the reason.
    bool matches(const Frame& frame, const PortTable& ports) const noexcept;
    bool isForAll() const noexcept { return !port && !label && !prefix && reason.empty(); }
};

/// The labels of a frame, and the address that the IP packet beneath them is for.
bool hasLabel(Wire::Bytes frame, std::uint32_t label) noexcept;
Lumo::IpGenAddr ipDestinationIn(Wire::Bytes frame) noexcept;

} // namespace OvixAgent
