#pragma once

#include <span>
#include <string>

#include "Bundle/AddressMap.h"
#include "Bundle/Bundle.h"

namespace OvixAgent {

/// Replaces the IP addresses of a bundle in its configuration, tables, neighbours and frames; the
/// notes beside them (Bundle::more), but for versions, and comments of the configuration are left
/// out. The fates of
/// the frames stay, but where a flow is one of several by its addresses, it may be another's.
/// Refuses what is not a configuration any more, and damaged tables.
Tessel::Result<void> anonymise(Bundle& bundle);

/// A configuration's text without comments, and with other addresses.
std::string anonymousText(const std::string& text, const AddressMap& map);

/// The same of a frame: IP headers beneath tags, labels and control words, those that ICMP errors
/// quote, tunnelled ones, and ARP. Behind them, where other addresses may be, are zeros; checksums
/// follow.
void anonymiseFrame(std::span<std::uint8_t> frame, const AddressMap& map);

/// Label tables made anew with other addresses: nothing of what was there before is left in the
/// memory. Throws std::exception for damaged ones.
Tessel::TableCopy anonymousTables(const Tessel::TableCopy& tables, const AgentConfig& config,
                                  const AddressMap& map);

} // namespace OvixAgent
