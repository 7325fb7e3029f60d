#include "Ovix/RoutingHandler.h"

#include <algorithm>

namespace Ovix {

void RoutingHandlers::handlerIs(Ptr<RoutingHandler> handler) {
    if (!handler) {
        return;
    }
    const auto same = std::find_if(handlers_.begin(), handlers_.end(), [&](const auto& held) {
        return held->name() == handler->name();
    });
    if (same != handlers_.end()) {
        *same = std::move(handler);
    } else {
        handlers_.push_back(std::move(handler));
    }
}

Ptr<RoutingHandler> RoutingHandlers::handler(std::string_view name) const noexcept {
    const auto found = std::find_if(handlers_.begin(), handlers_.end(),
                                    [&](const auto& held) { return held->name() == name; });
    return found != handlers_.end() ? *found : nullptr;
}

} // namespace Ovix
