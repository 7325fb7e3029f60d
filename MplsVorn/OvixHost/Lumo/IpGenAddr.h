#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

namespace Lumo {

/// An Ethernet MAC address, first byte on the wire first.
using EthAddr = std::array<std::uint8_t, 6>;

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

    /// The longest prefix of the family: 32 or 128 bits.
    constexpr std::uint8_t bits() const noexcept { return family_ == IpFamily::ipv4 ? 32 : 128; }
    /// The same with all but the first `length` bits zero.
    constexpr IpGenAddr masked(std::uint8_t length) const noexcept {
        IpGenAddr prefix = *this;
        for (std::size_t i = length / 8U; i < prefix.bytes_.size(); ++i) {
            const unsigned kept = i == length / 8U ? 0xff00U >> (length % 8U) : 0U;
            prefix.bytes_[i] &= static_cast<std::uint8_t>(kept);
        }
        return prefix;
    }
    /// The same with all but the first `length` bits of the family set.
    constexpr IpGenAddr filled(std::uint8_t length) const noexcept {
        IpGenAddr last = *this;
        for (std::size_t bit = length; bit < bits(); ++bit) {
            last.bytes_[bit / 8] |= static_cast<std::uint8_t>(0x80U >> bit % 8);
        }
        return last;
    }

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
    constexpr IpGenPrefix() noexcept = default;
    constexpr IpGenPrefix(const IpGenAddr& address, std::uint8_t length) noexcept
        : address_(address), length_(length) {}

    /// The prefix of that length that the address lies in.
    static constexpr IpGenPrefix of(const IpGenAddr& address, std::uint8_t length) noexcept {
        return {address.masked(length), length};
    }
    /// The prefix of one address.
    static constexpr IpGenPrefix ofHost(const IpGenAddr& address) noexcept {
        return {address, address.bits()};
    }

    constexpr const IpGenAddr& address() const noexcept { return address_; }
    constexpr std::uint8_t length() const noexcept { return length_; }

    friend constexpr bool operator==(const IpGenPrefix&, const IpGenPrefix&) noexcept = default;

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
    std::uint8_t length_ = 0;
};

} // namespace Lumo
