#pragma once

#include "Explain/Remedies.h"

namespace OvixAgent {

/// Changes of a frame that is this router's own business as it is: its TTL is spent, it is an LSP
/// ping (RFC 8029) or has a router alert label, or it is addressed to another station.
std::vector<Remedy> frameRemedies(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk);

} // namespace OvixAgent
