#include "Summary/Summary.h"

#include <algorithm>
#include <tuple>

#include "Ovix/trace/NamedCounters.h"
#include "State/OvixLfibCounterCollection.h"

namespace OvixAgent {

std::uint64_t Reasons::total() const {
    std::uint64_t frames = 0;
    for (const auto& [reason, count] : counts_) {
        frames += count;
    }
    return frames;
}

Traffic Summary::forwardedTotal() const {
    Traffic total;
    for (const PortTraffic& port : forwarded) {
        total.frames += port.traffic.frames;
        total.bytes += port.traffic.bytes;
    }
    return total;
}

std::uint64_t Summary::accountedFor() const {
    return forwardedTotal().frames + punted.total() + dropped.total() + handedOn.total() + waiting;
}

std::vector<LabelTraffic> labelTraffic(const Counter::PktCounterCollectionHolder& holder) {
    std::vector<LabelTraffic> labels;
    for (const auto& collection : holder.collections()) {
        collection->forEach([&](Mpls::RouteKey key, const Counter::PktCounter& counter) {
            labels.push_back({key.topLabel().value(), {counter.packets(), counter.bytes()}});
        });
    }
    std::sort(labels.begin(), labels.end(),
              [](const auto& a, const auto& b) { return a.label < b.label; });
    return labels;
}

std::vector<NamedCounter> namedCounters(const Ovix::OvixNamedCounters& counters) {
    std::vector<NamedCounter> named;
    for (const auto& counter : counters.counters()) {
        if (counter.count > 0) { // what a frame taken again has counted is taken back
            named.push_back({counter.category, counter.module, counter.reason, counter.count});
        }
    }
    return named;
}

std::vector<NamedCounter> readableCounters(const Ovix::OvixNamedCounters& counters) {
    std::map<std::tuple<std::string, std::string, std::string>, std::uint64_t> sums;
    for (const auto& counter : counters.counters()) {
        if (counter.count > 0 && !counter.isLookup) {
            const Ovix::EventText text = Ovix::readableEvent(counter.category, counter.reason);
            sums[{text.category, counter.module, text.reason}] += counter.count;
        }
    }
    std::vector<NamedCounter> named;
    for (const auto& [names, count] : sums) {
        const auto& [category, module, reason] = names;
        named.push_back({category, module, reason, count});
    }
    return named;
}

} // namespace OvixAgent
