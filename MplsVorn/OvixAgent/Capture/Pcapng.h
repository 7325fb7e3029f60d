#pragma once

#include <cstdint>

namespace OvixAgent::Pcapng {

// Of draft-ietf-opsawg-pcapng.

namespace BlockType {
constexpr std::uint32_t section = 0x0a0d0d0a; ///< the same in either byte order
constexpr std::uint32_t interface = 1;
constexpr std::uint32_t oldPacket = 2;
constexpr std::uint32_t simplePacket = 3;
constexpr std::uint32_t packet = 6;
} // namespace BlockType

namespace OptionCode {
constexpr std::uint16_t end = 0;
constexpr std::uint16_t comment = 1;
constexpr std::uint16_t interfaceName = 2;
constexpr std::uint16_t timeResolution = 9;
} // namespace OptionCode

/// Behind the length of a section's block, in the byte order of the section.
constexpr std::uint32_t byteOrder = 0x1a2b3c4d;

} // namespace OvixAgent::Pcapng
