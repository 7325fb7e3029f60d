#include "Live/ports/PortRates.h"

#include <utility>

namespace OvixAgent {

PortRates::PortRates(const LivePorts& ports, std::size_t count, Clock::time_point now)
    : ports_(&ports), count_(count), before_{now, {}}, last_(before_) {}

void PortRates::tick(Clock::time_point now) {
    if (isDue(now)) {
        before_ = std::exchange(last_, momentAt(now));
    }
}

PortRates::Moment PortRates::momentAt(Clock::time_point now) const {
    Moment moment{now, {}};
    for (PortIndex port = 0; port < count_; ++port) {
        std::vector<std::uint64_t>& received = moment.received.emplace_back();
        received.push_back(ports_->count(port, LiveEvent::received));
        for (LivePort* const queue : ports_->queuesOf(port)) {
            received.push_back(queue->counts().of(LiveEvent::received));
        }
    }
    return moment;
}

double PortRates::ofPort(PortIndex index, Clock::time_point now) const {
    return since(index, 0, ports_->count(index, LiveEvent::received), now);
}

double PortRates::ofQueue(PortIndex index, std::size_t queue, Clock::time_point now) const {
    return since(index, 1 + queue, ports_->queuesOf(index)[queue]->counts().of(LiveEvent::received),
                 now);
}

/// What there was not yet has received nothing until then.
double PortRates::since(PortIndex index, std::size_t place, std::uint64_t received,
                        Clock::time_point now) const {
    const bool isKnown = index < before_.received.size() && place < before_.received[index].size();
    const std::uint64_t then = isKnown ? before_.received[index][place] : 0;
    const double seconds = std::chrono::duration<double>(now - before_.time).count();
    return seconds > 0 ? static_cast<double>(received - then) / seconds : 0;
}

} // namespace OvixAgent
