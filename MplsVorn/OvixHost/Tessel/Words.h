#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Tessel {

/// A value of an enumeration, and the word for it in files, commands and traces.
template <typename Value>
struct Word {
    std::string_view word;
    Value value;
};

/// The table of an enumeration's words, specialised beside the enumeration. A value may be missing.
template <typename Value>
inline constexpr std::array<Word<Value>, 0> words{};

/// Empty for a value without a word.
template <typename Value>
constexpr std::string_view wordOf(Value value) noexcept {
    for (const Word<Value>& entry : words<Value>) {
        if (entry.value == value) {
            return entry.word;
        }
    }
    return {};
}

/// The word, or the number of a value without one.
template <typename Value>
std::string textOf(Value value) {
    const std::string_view word = wordOf(value);
    return word.empty() ? std::to_string(static_cast<std::underlying_type_t<Value>>(value))
                        : std::string(word);
}

/// Unset when the word means nothing.
template <typename Value>
constexpr std::optional<Value> valueOf(std::string_view word) noexcept {
    for (const Word<Value>& entry : words<Value>) {
        if (entry.word == word) {
            return entry.value;
        }
    }
    return std::nullopt;
}

/// The words alone, in the order of the table, for help, completion and suggestions.
template <typename Value>
constexpr auto wordList() noexcept {
    std::array<std::string_view, words<Value>.size()> list{};
    for (std::size_t i = 0; i < list.size(); ++i) {
        list[i] = words<Value>[i].word;
    }
    return list;
}

} // namespace Tessel
