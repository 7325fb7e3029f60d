#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>

#include "Tessel/Exceptions.h"

namespace OvixFpm {

/// Bytes that somebody else keeps.
using Bytes = std::span<const std::uint8_t>;

/// A message that makes no sense. `what()` is the reason, as it is reported.
class Malformed : public Tessel::RangeError {
  public:
    using RangeError::RangeError;
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

} // namespace OvixFpm
