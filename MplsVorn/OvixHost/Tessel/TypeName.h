#pragma once

#include <cstdint>
#include <string_view>

namespace Tessel {

/// FNV-1a over any number of texts, each ended by a zero byte.
constexpr std::uint64_t hashText(std::string_view text,
                                 std::uint64_t hash = 0xcbf29ce484222325) noexcept {
    for (const char c : text) {
        hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001b3;
    }
    return hash * 0x100000001b3;
}

/// A type's name with its hash fixed at compile time, for registries that are asked per frame.
class TypeName {
  public:
    constexpr explicit TypeName(std::string_view text) noexcept
        : text_(text), hash_(hashText(text)) {}

    constexpr std::string_view text() const noexcept { return text_; }
    constexpr std::uint64_t hash() const noexcept { return hash_; }

    friend constexpr bool operator==(const TypeName& a, const TypeName& b) noexcept {
        return a.hash_ == b.hash_ && a.text_ == b.text_;
    }

  private:
    std::string_view text_;
    std::uint64_t hash_;
};

} // namespace Tessel
