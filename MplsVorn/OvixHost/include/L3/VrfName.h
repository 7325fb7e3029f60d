#pragma once

#include "Tessel/BoundedString.h"

#include <string_view>

namespace L3 {

/// The name of a VRF; empty means none named.
using VrfName = Tessel::BoundedString<100>;

inline constexpr std::string_view defaultVrf = "default";

} // namespace L3
