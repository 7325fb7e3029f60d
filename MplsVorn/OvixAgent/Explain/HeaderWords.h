#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// Unset unless the text is six pairs of hexadecimal digits with colons in between.
std::optional<Lumo::EthAddr> macFromText(std::string_view text);

/// A word that is not what it should be.
struct WordRefused {
    std::size_t place; ///< from 0, over the whole text
    std::string why;
};

/// The words of one header of a frame. What is no such word throws WordRefused.
class HeaderWords {
  public:
    struct Word {
        std::string_view text;
        std::size_t place = 0; ///< from 0, over the whole text
    };

    /// `end` is the place behind the last word.
    HeaderWords(std::vector<Word> words, std::size_t end) : words_(std::move(words)), end_(end) {}

    /// Headers end at commas; words at blanks, slashes and ">", which is a word.
    static std::vector<HeaderWords> of(std::string_view text);

    bool empty() const noexcept { return next_ == words_.size(); }
    std::size_t place() const noexcept { return empty() ? end_ : words_[next_].place; }
    /// `what` names the word when it is missing.
    std::string_view take(std::string_view what);
    bool takeIf(std::string_view word);
    /// The field that the word taken last names must not have been named in this header before.
    void requireFirst(std::string_view field);
    std::uint64_t takeNumber(std::string_view what, std::uint64_t most);
    Lumo::EthAddr takeMac(std::string_view what);
    Lumo::IpGenAddr takeAddress(std::string_view what);

  private:
    std::vector<Word> words_;
    std::size_t next_ = 0;
    std::vector<std::string_view> fields_; ///< that have been named
    std::size_t end_;
};

} // namespace OvixAgent
