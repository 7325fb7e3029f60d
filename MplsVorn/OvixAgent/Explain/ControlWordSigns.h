#pragma once

#include <optional>
#include <string>

#include "Explain/TrialRouter.h"
#include "State/PseudowirePayload.h"

namespace OvixAgent {

/// Of the last pseudowire payload of a walk; unset when there was none.
std::optional<PayloadSigns> payloadSigns(const Walk& walk);

/// What has to be said of the control word of a frame, whatever became of it; empty: nothing.
std::string controlWordRemark(const Walk& walk);

} // namespace OvixAgent
