#include "Server/Query.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

namespace OvixHttp {

namespace {

/// As far as it fits a line.
std::string quoted(const std::string& text) {
    constexpr std::size_t longest = 64;
    std::string shown = text.substr(0, longest);
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
    return '"' + shown + (text.size() > longest ? "…\"" : "\"");
}

std::string namesOf(const std::vector<HttpParameter>& known) {
    std::vector<std::string> names;
    names.reserve(known.size());
    for (const HttpParameter& each : known) {
        names.push_back(each.name);
    }
    return names.empty() ? "none are taken here"
                         : fmt::format("known here: {}", fmt::join(names, ", "));
}

bool isNumberUpTo(const std::string& text, std::uint64_t most) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value <= most;
}

/// Of the argument at a place.
std::string whyRefused(const HttpArguments& arguments, std::size_t at,
                       const std::vector<HttpParameter>& known) {
    const std::string& name = arguments[at].first;
    const auto parameter = std::find_if(known.begin(), known.end(),
                                        [&](const auto& each) { return each.name == name; });
    const auto first = std::find_if(arguments.begin(), arguments.end(),
                                    [&](const auto& argument) { return argument.first == name; });
    if (parameter == known.end()) {
        return "no such parameter; " + namesOf(known);
    }
    if (first != arguments.begin() + static_cast<std::ptrdiff_t>(at)) {
        return "given twice";
    }
    return !parameter->most || isNumberUpTo(arguments[at].second.value_or(""), *parameter->most)
               ? ""
               : fmt::format("no number of 0 to {}", *parameter->most);
}

} // namespace

std::string faultOf(const HttpArguments& arguments, const std::vector<HttpParameter>& known) {
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const auto& [name, value] = arguments[at];
        if (const std::string why = whyRefused(arguments, at, known); !why.empty()) {
            return fmt::format("parameter {}{}: {}", quoted(name),
                               value ? ", value " + quoted(*value) : ", without a value", why);
        }
    }
    for (const HttpParameter& each : known) {
        if (each.isRequired &&
            std::none_of(arguments.begin(), arguments.end(),
                         [&](const auto& one) { return one.first == each.name; })) {
            return fmt::format("parameter {} is missing", quoted(each.name));
        }
    }
    return {};
}

} // namespace OvixHttp
