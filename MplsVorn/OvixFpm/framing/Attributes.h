#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace OvixFpm {

/// A view of bytes that must outlive it.
using Bytes = std::span<const std::uint8_t>;

/// A malformed message: `what()` is the reason, as it is reported. Thrown and caught within the
/// reader of a message.
class Malformed : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The first sizeof(T) bytes as a T in the byte order of this machine, which is netlink's. Throws
/// Malformed, naming `what`, when there are fewer.
template <typename T>
T readHead(Bytes bytes, const char* what) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (bytes.size() < sizeof(T)) {
        throw Malformed(std::string(what) + " needs " + std::to_string(sizeof(T)) +
                        " bytes; there are " + std::to_string(bytes.size()));
    }
    T value;
    std::memcpy(&value, bytes.data(), sizeof(T));
    return value;
}

/// A type of attribute, and what it is called in reports.
struct Field {
    std::uint16_t type;
    const char* name;
};

/// The attributes of a message, of a next hop or of an encapsulation, by type. Unknown types are
/// skipped, and the flag bits of a type (nested, network byte order) ignored.
class Attributes {
  public:
    static constexpr std::uint16_t typeMask = 0x3fff;

    /// Throws Malformed for an invalid length, for bytes that are left over, and for a type that
    /// comes twice.
    explicit Attributes(Bytes bytes);

    /// The value; unset when there is no such attribute.
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
void checkSize(std::size_t size, Bytes value, Field field);

} // namespace OvixFpm
