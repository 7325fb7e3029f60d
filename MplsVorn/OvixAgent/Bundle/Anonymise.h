#pragma once

#include <string>

#include "Bundle/AddressMap.h"
#include "Bundle/Bundle.h"

namespace OvixAgent {

/// Replaces the IP addresses of a bundle in its configuration, tables, neighbours and frames; the
/// notes beside them (Bundle::more) and comments of the configuration are left out. The fates of
/// the frames stay, but where a flow is one of several by its addresses, it may be another's.
/// Refuses what is not a configuration any more, and damaged tables.
Tessel::Result<void> anonymise(Bundle& bundle);

/// A configuration's text without comments, and with other addresses.
std::string anonymousText(const std::string& text, const AddressMap& map);

/// The same of the IP header of a frame, beneath tags and labels; checksums follow.
void anonymiseFrame(std::vector<std::uint8_t>& frame, const AddressMap& map);

/// Label tables made anew with other addresses: nothing of what was there before is left in the
/// memory. Throws std::exception for damaged ones.
Tessel::TableCopy anonymousTables(const Tessel::TableCopy& tables, const AgentConfig& config,
                                  const AddressMap& map);

} // namespace OvixAgent
