#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Mpls/Via.h"
#include "Tessel/Result.h"

namespace OvixCtl {

/// Words of a command line that cannot be understood: which word, and what was expected. Thrown
/// within a reader of words, and returned by readWords().
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What `read` returns, or the UsageError that it throws.
template <class Read>
auto readWords(Read&& read) -> Tessel::Result<decltype(read())> {
    try {
        return read();
    } catch (const UsageError& error) {
        return Tessel::Refused{error.what()};
    }
}

// Single words of a command line. All throw UsageError, naming the word.

/// A number of `min` to `max`; `noun` names it in errors.
std::uint64_t parseNumber(const std::string& word, std::string_view noun, std::uint64_t min,
                          std::uint64_t max);
/// 20 bits (RFC 3032).
Lumo::MplsLabel parseLabel(const std::string& word);
/// Outermost first, none of them implicit null: "200/300".
std::vector<Lumo::MplsLabel> parseLabels(const std::string& word);
/// `family` is "inet", "inet6" or "" for either.
Lumo::IpGenAddr parseAddress(const std::string& word, std::string_view family);
/// The name of an interface, or the id of one without a name: "0x" and 16 hexadecimal digits.
Lumo::IntfId parseInterface(const std::string& word);
/// The name of a VRF, 1 to 100 bytes.
L3::VrfName parseVrf(const std::string& word);
[[noreturn]] void refuseWord(const std::string& word, std::string_view noun,
                             std::span<const std::string_view> known);
/// A word of the enumeration's table.
template <class Value>
Value parseWord(const std::string& word, std::string_view noun) {
    const auto value = Tessel::valueOf<Value>(word);
    if (!value) {
        refuseWord(word, noun, Tessel::wordList<Value>());
    }
    return *value;
}

/// An attribute of a via beside its operation, next hop and interface, as a word and a value.
struct ViaAttribute {
    std::string_view word;
    std::string value; ///< what help calls it: "N", or the words "a|b"; empty: there is none
    /// The value; unset when it is as usual.
    std::optional<std::string> (*text)(const Mpls::ViaOptions& options);
    /// Takes the value. Throws UsageError, with `noun` for what it is.
    void (*take)(Mpls::ViaOptions& options, std::string_view noun, const std::string& value);
};

/// All of them: a route is printed and parsed by this table.
const std::vector<ViaAttribute>& viaAttributes();

} // namespace OvixCtl
