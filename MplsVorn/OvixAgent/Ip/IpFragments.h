#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace OvixAgent {

/// One fragment: a header of its own, and the part of the packet that follows it.
struct IpFragment {
    std::array<std::uint8_t, 60> headerBytes{};
    std::size_t headerSize = 0;
    std::span<const std::uint8_t> payload; ///< what there is of it; borrowed from the packet
    std::size_t snapped = 0;               ///< how much of it a capture left out

    std::span<const std::uint8_t> header() const noexcept {
        return std::span(headerBytes).first(headerSize);
    }
};

/// How a router cuts an IPv4 packet that is too big for its way out (RFC 791 section 3.2, RFC 1812
/// section 4.2.2.7): the pieces have its identification, each but the last is as big as fits and a
/// multiple of 8 bytes behind its header, and options go into the later ones when they say so. What
/// is cut may be a fragment itself. A view of the packet's bytes.
class IpFragments {
  public:
    /// Of a packet of which a capture may have left out the end, into packets of at most `mtu`
    /// bytes. Empty when that cannot or must not be done: it is no whole IPv4 header, must not be
    /// fragmented, fits as it is, 8 bytes do not fit behind its header, it reaches farther than
    /// offsets tell, or its options are damaged.
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
    std::size_t dataSize_ = 0;  ///< behind the header, as the header tells it
    std::size_t firstSize_ = 0; ///< the first one's part of it, in bytes
    std::size_t laterSize_ = 0; ///< that of each between the first and the last
    std::size_t count_ = 0;
};

} // namespace OvixAgent
