#pragma once

#include <optional>
#include <string>

#include "Explain/TrialRouter.h"

namespace OvixAgent {

/// What a pseudowire's payload looks like. A control word begins with four zero bits (RFC 4385
/// section 3), and so does a frame without one whose destination address begins with 0. Only the
/// EtherType tells them apart, where just one of its two places has a well-known one.
enum class PayloadSigns : std::uint8_t {
    controlWord, ///< an Ethernet frame behind four bytes
    ethernet,    ///< an Ethernet frame from its first byte on
    unknown,     ///< neither, or either
};

/// Of the last pseudowire payload of a walk; unset when there was none.
std::optional<PayloadSigns> payloadSigns(const Walk& walk);

/// What has to be said of the control word of a frame, whatever became of it; empty: nothing.
std::string controlWordRemark(const Walk& walk);

} // namespace OvixAgent
