// What the frames of a burst will need is loaded before the first of them is processed: by then the
// others wait for memory together.

#include <array>

#include "FastPath/DecidedForwarding.h"
#include "Tessel/Prefetch.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

using Wire::Ethernet;

inline LabelForwarding::Destination
DecidedForwarding::destinationOf(const WritableFrame& frame) const noexcept {
    const Intake& intake = decided_->intakes[frame.port];
    if (frame.size < shortest + Wire::Ipv4::size) {
        return {};
    }
    const auto etherType = Lumo::NetU16::load(frame.bytes + Ethernet::etherTypeAt).value();
    const std::uint8_t* const packet = frame.bytes + Ethernet::size;
    if (etherType == Wire::EtherType::ipv4 && intake.takesPlainIp) {
        return {packet + Wire::Ipv4::destinationAt, intake.fib};
    }
    return etherType == Wire::EtherType::mpls ? labels_.destinationBeneath(packet)
                                              : LabelForwarding::Destination();
}

void DecidedForwarding::loadAhead(std::span<const WritableFrame> burst) noexcept {
    constexpr std::size_t headersAhead = 16;
    const LabelForwarding::Lane lane = labels_.lane();
    const auto loadLabel = [&lane](const WritableFrame& frame) {
        if (frame.size >= shortest) {
            lane.prefetch(frame.bytes + Ethernet::size);
        }
    };
    std::size_t i = 0;
    for (; i + headersAhead < burst.size(); ++i) {
        Tessel::prefetch(burst[i + headersAhead].bytes);
        loadLabel(burst[i]);
    }
    for (; i < burst.size(); ++i) {
        loadLabel(burst[i]);
    }
    if (labels_.takeRecordsUsed()) {
        for (const WritableFrame& frame : burst) {
            if (frame.size >= shortest) {
                labels_.prefetchRecord(frame.bytes + Ethernet::size);
            }
        }
    }
    if (ipHop_.takeRouted() > 0) {
        loadRoutes(burst);
    }
}

/// The same where packets are routed: step by step, since each load leads to the next.
void DecidedForwarding::loadRoutes(std::span<const WritableFrame> burst) noexcept {
    std::array<IpHop::Ahead, burstFrames> routed;
    std::size_t count = 0;
    for (const WritableFrame& frame : burst) {
        const LabelForwarding::Destination to = destinationOf(frame);
        if (to.address != nullptr) {
            routed[count++] = ipHop_.loadPlace(to.fib, to.address);
        }
    }
    for (const IpHop::Ahead& one : std::span(routed).first(count)) {
        ipHop_.loadHop(one);
    }
}

} // namespace OvixAgent
