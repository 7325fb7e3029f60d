#pragma once

#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabel.h"
#include "Lumo/MplsLabelOperation.h"
#include "Mpls/LfibRecords.h"
#include "Mpls/RouteKey.h"
#include "Mpls/Types.h"
#include "Ovix/trace/Trace.h"

namespace Ovix {

/// How the system's value types read in traces: numbers in decimal.
inline TraceLine& operator<<(TraceLine& line, Lumo::MplsLabel label) noexcept {
    return line << label.value();
}
inline TraceLine& operator<<(TraceLine& line, Mpls::LfibViaType type) noexcept {
    return line << static_cast<unsigned>(type);
}
inline TraceLine& operator<<(TraceLine& line, Mpls::LfibViaSetType type) noexcept {
    return line << (type == Mpls::LfibViaSetType::multicast ? "multicast" : "unicast");
}
inline TraceLine& operator<<(TraceLine& line, Mpls::LfibViaSetKey key) noexcept {
    return line << "viaSet " << key.value;
}
/// A key of one label reads as the label.
inline TraceLine& operator<<(TraceLine& line, Mpls::RouteKey key) noexcept {
    return key.depth() == 1 ? line << "label " << key.topLabel() : line << "labels " << key.value();
}

} // namespace Ovix
