#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "Wire/Ip.h"

namespace OvixAgent {

/// One fragment: its header, and its part of the packet's data.
struct IpFragment {
    std::array<std::uint8_t, Wire::Ipv4::maxSize> headerBytes{};
    std::size_t headerSize = 0;
    std::span<const std::uint8_t> payload; ///< as far as captured; borrowed from the packet
    std::size_t snapped = 0;               ///< bytes of the payload that a capture left out

    std::span<const std::uint8_t> header() const noexcept {
        return std::span(headerBytes).first(headerSize);
    }
};

/// Fragments an IPv4 packet that exceeds the egress MTU (RFC 791 section 3.2, RFC 1812 section
/// 4.2.2.7). Fragments keep the identification; each but the last is as big as fits and carries a
/// multiple of 8 bytes; later ones have only the options to be copied. The packet may itself be a
/// fragment. A view of the packet's bytes.
class IpFragments {
  public:
    /// Into packets of at most `mtu` bytes; a capture may have left out the packet's end. Empty
    /// when the packet cannot or must not be fragmented: it is not IPv4, its header is damaged or
    /// not whole, DF is set, it fits, the MTU has no room for the header and 8 bytes, or the
    /// offsets would exceed their field.
    static std::optional<IpFragments> of(std::span<const std::uint8_t> packet,
                                         std::size_t mtu) noexcept;

    /// At least 2.
    std::size_t count() const noexcept { return count_; }

    /// `index` must be below count().
    IpFragment at(std::size_t index) const noexcept;

  private:
    IpFragments() = default;

    std::span<const std::uint8_t> packet_;
    IpFragment later_; ///< the header of all but the first
    std::size_t headerSize_ = 0;
    std::size_t dataSize_ = 0;  ///< bytes behind the header, by its total length
    std::size_t firstSize_ = 0; ///< data bytes of the first fragment
    std::size_t laterSize_ = 0; ///< data bytes of each fragment between the first and the last
    std::size_t count_ = 0;
};

} // namespace OvixAgent
