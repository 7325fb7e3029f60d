#pragma once

#include <cmath>
#include <string>

namespace OvixAgent {

/// JSON as text, in one line or indented. What comes from outside need not be UTF-8, but JSON is:
/// what is not is replaced.
template <typename Json>
std::string dumped(const Json& json, int indent = -1) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

/// As precise as a rate is shown.
inline double inTenths(double value) {
    return std::round(value * 10) / 10;
}

} // namespace OvixAgent
