#pragma once

#include <string>

#include "Explain/Situation.h"
#include "Tessel/Result.h"
#include "commands/Command.h"

namespace OvixCtl {

/// All that a running agent forwards by, as it says itself, and a copy of the newest generation of
/// its tables. Refuses as answerOf() does, and for an answer that is none of this version.
Tessel::Result<OvixAgent::Situation> situationOf(const Request& request);
/// The same without neighbours and tables.
Tessel::Result<OvixAgent::Situation> configurationOf(const Request& request);

} // namespace OvixCtl
