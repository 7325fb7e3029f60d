#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "framing/Bytes.h"

namespace OvixFpm {

/// A type of attribute, and what it is called in reports.
struct Field {
    std::uint16_t type;
    const char* name;
};

/// The attributes of a message, of a next hop or of an encapsulation, by type. Types beyond those
/// that are known are skipped. The flag bits of a type (nested, network byte order) are not looked
/// at.
class Attributes {
  public:
    static constexpr std::uint16_t typeMask = 0x3fff;

    /// Throws Malformed when a length cannot be right, when bytes are left over, and when a type
    /// comes twice.
    explicit Attributes(Bytes bytes);

    /// The value; nothing when there is no such attribute.
    std::optional<Bytes> find(Field field) const noexcept;

    /// The value of an attribute of exactly that size; throws Malformed when it has another.
    std::optional<std::uint8_t> u8(Field field) const;
    std::optional<std::uint16_t> u16(Field field) const;
    std::optional<std::uint32_t> u32(Field field) const;

  private:
    static constexpr std::uint16_t knownTypes = 31;

    template <typename T>
    std::optional<T> exact(Field field) const;

    std::array<std::optional<Bytes>, knownTypes> values_;
};

/// Throws Malformed, naming the field, when its value has another size.
void sizeMustBe(std::size_t size, Bytes value, Field field);

} // namespace OvixFpm
