#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace OvixHttp {

/// A parameter that the query of a request may have.
struct HttpParameter {
    std::string name;
    std::optional<std::uint64_t> most{}; ///< of a decimal number; unset: any text
    bool isRequired = false;
};

/// As a client has given them, decoded; a value may be missing.
using HttpArguments = std::vector<std::pair<std::string, std::optional<std::string>>>;

/// What is wrong with the arguments, with the parameter's name and value; empty when all of them
/// are known, there once, and numbers where they have to be.
std::string faultOf(const HttpArguments& arguments, const std::vector<HttpParameter>& known);

} // namespace OvixHttp
