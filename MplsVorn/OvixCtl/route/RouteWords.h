#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Mpls/RouteOwner.h"
#include "Mpls/TableDirectory.h"
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

/// Whether a word has digits only.
bool isNumber(std::string_view word) noexcept;
/// A number of `min` to `max`; `noun` names it in errors.
std::uint64_t parseNumber(const std::string& word, std::string_view noun, std::uint64_t min,
                          std::uint64_t max);
/// 20 bits (RFC 3032).
Lumo::MplsLabel parseLabel(const std::string& word);
/// Outermost first, none of them implicit null: "200/300".
std::vector<Lumo::MplsLabel> parseLabels(const std::string& word);
/// `family` is "inet", "inet6" or "" for either.
Lumo::IpGenAddr parseAddress(const std::string& word, std::string_view family);
/// Whether the word of a name can be read back from a line: no blanks, no control characters.
bool isPlain(std::string_view name) noexcept;
/// The name of an interface, or the id of one without a name: "0x" and 16 hexadecimal digits.
Lumo::IntfId parseInterface(const std::string& word);
/// The name of a VRF, 1 to 100 bytes.
L3::VrfName parseVrf(const std::string& word);
/// The via type, also by its number.
Mpls::LfibViaType parseType(const std::string& word);
/// The owner of a route, also by its number.
Mpls::RouteOwner parseOwner(const std::string& word);
/// One of `tables`.
Mpls::TableId parseTable(const std::string& word, std::span<const std::string_view> tables);
/// The key of an entry: a label, an adjacency's id or a VRF's id.
std::uint32_t parseKey(const std::string& word, Mpls::TableId table);
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

/// Notes a word that may be given once. Throws UsageError when it is there already.
void once(std::set<std::string_view>& given, std::string_view word);

/// Words one by one. Throws UsageError, too.
class Words {
  public:
    explicit Words(std::span<const std::string> words) noexcept : rest_(words) {}

    bool empty() const noexcept { return rest_.empty(); }
    bool beginWithNumber() const noexcept { return !empty() && isNumber(rest_.front()); }
    /// The next word; `what` names it when it is missing.
    const std::string& next(std::string_view what);
    /// Takes the next word when it is this one.
    bool nextIs(std::string_view word);
    /// The next word as an interface, and as the interface of a VLAN.
    Lumo::IntfId nextInterface();
    Lumo::IntfId nextVlan();

    /// The names of the interfaces taken so far.
    const std::vector<std::string>& interfaces() const noexcept { return interfaces_; }

  private:
    std::span<const std::string> rest_;
    std::vector<std::string> interfaces_;
};

} // namespace OvixCtl
