#pragma once

#include "Recording.h"
#include "Script.h"

namespace Differential {

/// A script made of as few steps and frames of the given one as can be found by which the roads
/// still differ, the last of them making the difference. The given one must differ.
Script shrunk(Script script, Fault fault);

} // namespace Differential
