#pragma once

#include <array>
#include <cstdint>

namespace Lumo {

/// An Ethernet MAC address, first byte on the wire first.
using EthAddr = std::array<std::uint8_t, 6>;

} // namespace Lumo
