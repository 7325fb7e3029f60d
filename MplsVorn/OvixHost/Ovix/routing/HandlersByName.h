#pragma once

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "Tessel/Ptr.h"

namespace Ovix {

/// The handlers of one kind that plugins offer the agent, by `name()`.
template <typename Handler>
class HandlersByName : public Tessel::Counted {
  public:
    /// Adds a handler; one of the same name is replaced. An empty handle is ignored.
    void handlerIs(Ptr<Handler> handler) {
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

    /// Empty when there is none of that name.
    Ptr<Handler> handler(std::string_view name) const noexcept {
        const auto found = std::find_if(handlers_.begin(), handlers_.end(),
                                        [&](const auto& held) { return held->name() == name; });
        return found != handlers_.end() ? *found : nullptr;
    }

  private:
    std::vector<Ptr<Handler>> handlers_;
};

} // namespace Ovix
