#pragma once

#include <exception>
#include <string>

namespace TestSupport {

/// What an action is refused with, by an exception of that kind; empty when it is not.
template <typename Error = std::exception, typename Action>
std::string refusal(const Action& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return {};
}

} // namespace TestSupport
