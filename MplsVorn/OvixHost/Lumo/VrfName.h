#pragma once

#include <string_view>

#include "Tessel/BoundedString.h"

namespace L3 {

/// The name of a VRF; empty means none named.
using VrfName = Tessel::BoundedString<100>;

inline constexpr std::string_view defaultVrf = "default";

} // namespace L3
