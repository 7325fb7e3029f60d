#include "Log/LineLimits.h"

#include <algorithm>
#include <utility>

namespace OvixLog {

bool LineLimits::admit(std::string_view kind, Clock::time_point now) {
    if (kind.empty()) {
        return true;
    }
    Kind& known = kinds_[kind];
    const Clock::time_point dueAt = std::max(known.dueAt, now) + perLine;
    if (dueAt - now > burst * perLine) {
        ++known.leftOut;
        return false;
    }
    known.dueAt = dueAt;
    return true;
}

std::vector<LineLimits::LeftOut> LineLimits::takeLeftOut() {
    std::vector<LeftOut> all;
    for (auto& [kind, known] : kinds_) {
        if (known.leftOut > 0) {
            all.push_back({kind, std::exchange(known.leftOut, 0)});
        }
    }
    return all;
}

} // namespace OvixLog
