#include "Command/FateHistory.h"

namespace OvixAgent {

FateHistory::FateHistory(const Forwarder& forwarder, Clock::time_point now)
    : forwarder_(&forwarder), asked_{now, forwarder.counts()}, before_(asked_), last_(asked_) {}

FateGrowth FateHistory::sinceAsked(Clock::time_point now) {
    FateGrowth growth = since(asked_, now);
    asked_ = {now, forwarder_->counts()};
    return growth;
}

FateGrowth FateHistory::ofLate(Clock::time_point now) const {
    return since(before_, now);
}

FateGrowth FateHistory::since(const Moment& before, Clock::time_point now) const {
    return {std::chrono::duration<double>(now - before.time).count(),
            forwarder_->growthSince(before.counts)};
}

} // namespace OvixAgent
