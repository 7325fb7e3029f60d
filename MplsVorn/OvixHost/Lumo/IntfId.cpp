#include "Lumo/IntfId.h"

#include "Tessel/Exceptions.h"

namespace Lumo {

namespace {

constexpr std::size_t longestName = 100;

// FNV-1a: the id of a name must be the same in every process that reads the shared tables.
constexpr std::uint64_t hashOfName(std::string_view name) noexcept {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : name) {
        hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001b3;
    }
    return hash;
}

} // namespace

IntfId::IntfId(std::string_view name) {
    if (name.size() > longestName) {
        throw Tessel::RangeError("interface name of more than 100 bytes");
    }
    if (!name.empty()) {
        *this = ofKind(Kind::ethernet, hashOfName(name));
    }
}

} // namespace Lumo
