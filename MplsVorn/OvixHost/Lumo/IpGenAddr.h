#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

namespace Lumo {

enum class IpFamily : std::uint8_t { none = 0, ipv4 = 4, ipv6 = 6 };

/// An IPv4 or IPv6 address with its family, in network byte order; an IPv4 address fills the first
/// four bytes. Default: no family, all zero, which means no address.
class IpGenAddr {
  public:
    static constexpr std::size_t ipv4Size = 4;
    static constexpr std::size_t ipv6Size = 16;

    constexpr IpGenAddr() noexcept = default;
    /// The empty (all-zero) address of a family.
    constexpr explicit IpGenAddr(IpFamily family) noexcept : family_(family) {}

    /// From 4 respectively 16 bytes as they stand in a header.
    static IpGenAddr ipv4(const std::uint8_t* bytes) noexcept {
        IpGenAddr address(IpFamily::ipv4);
        std::memcpy(address.bytes_.data(), bytes, ipv4Size);
        return address;
    }
    static IpGenAddr ipv6(const std::uint8_t* bytes) noexcept {
        IpGenAddr address(IpFamily::ipv6);
        std::memcpy(address.bytes_.data(), bytes, ipv6Size);
        return address;
    }
    /// From text; anything that is not an address yields the address of no family.
    static IpGenAddr fromText(const std::string& text);

    constexpr IpFamily family() const noexcept { return family_; }
    constexpr const std::array<std::uint8_t, ipv6Size>& bytes() const noexcept { return bytes_; }
    constexpr bool empty() const noexcept { return *this == IpGenAddr(family_); }
    constexpr bool isEq(const IpGenAddr& other) const noexcept { return *this == other; }

    /// In the family's usual notation; "" for no family.
    std::string text() const;

    friend constexpr bool operator==(const IpGenAddr&, const IpGenAddr&) noexcept = default;

  private:
    std::array<std::uint8_t, ipv6Size> bytes_{};
    IpFamily family_ = IpFamily::none;
};

/// An address prefix; `contains` compares the first `length` bits within the same family.
class IpGenPrefix {
  public:
    constexpr IpGenPrefix(const IpGenAddr& address, std::uint8_t length) noexcept
        : address_(address), length_(length) {}

    bool contains(const IpGenAddr& address) const noexcept {
        if (address.family() != address_.family()) {
            return false;
        }
        const std::size_t whole = length_ / 8U;
        if (std::memcmp(address.bytes().data(), address_.bytes().data(), whole) != 0) {
            return false;
        }
        const unsigned rest = length_ % 8U;
        return rest == 0 ||
               ((address.bytes()[whole] ^ address_.bytes()[whole]) >> (8U - rest)) == 0;
    }

  private:
    IpGenAddr address_;
    std::uint8_t length_;
};

} // namespace Lumo
