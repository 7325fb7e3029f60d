#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Mpls/LfibRecords.h"
#include "Mpls/OvixMplsVia.h"
#include "Mpls/Types.h"

namespace OvixCtl {

// The words of a configuration file for what tables hold as numbers. A number that has no word
// stands for itself.

std::string wordOf(Mpls::LfibViaType type);
std::string wordOf(Lumo::MplsLabelAction action);
std::string wordOf(Mpls::PayloadType payload);
std::string wordOf(Mpls::TtlMode mode);

/// The labels of a via's operation, outermost first.
std::vector<std::uint32_t> labelsOf(const Ovix::OvixMplsVia& via);
/// "200/300".
std::string labelText(const std::vector<std::uint32_t>& labels);

/// What of a via is not as it usually is: key and value, or a key alone.
using Attributes = std::vector<std::pair<std::string, std::string>>;
Attributes attributesOf(const Ovix::OvixMplsVia& via);

/// The interface of the tail of a multicast LSP.
inline Lumo::IntfId intfOf(const Mpls::LfibMulticastIpLookupVia& tail) noexcept {
    return Lumo::IntfId::fromValue((std::uint64_t{tail.intfIdHigh} << 32U) | tail.intfIdLow);
}

} // namespace OvixCtl
