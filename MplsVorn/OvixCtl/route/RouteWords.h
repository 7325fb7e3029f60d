#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Config/ConfigTypes.h"
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

/// A number of 0 to `max`; `noun` names it in errors.
std::uint32_t parseNumber(const std::string& word, std::string_view noun, std::uint32_t max);

/// 20 bits (RFC 3032).
std::uint32_t parseLabel(const std::string& word);

/// Labels that may stand in a frame, outermost first: "200/300".
std::vector<std::uint32_t> parseLabels(const std::string& word);

/// `family` is "inet", "inet6" or "" for either.
OvixAgent::IpAddress parseAddress(const std::string& word, std::string_view family);

} // namespace OvixCtl
