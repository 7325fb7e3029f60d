#pragma once

#include "Mpls/RouteKey.h"
#include "State/PktCounter.h"
#include "Tessel/Entity.h"
#include "Tessel/FlatMap.h"

namespace Counter {

/// Packets and bytes per label route. Counters come into being with the first packet counted.
class OvixLfibCounterCollection : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "Counter::OvixLfibCounterCollection";

    explicit OvixLfibCounterCollection(std::string name) : Entity(std::move(name)) {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    /// The route's counter, created if absent; good until the next one is created or removed.
    PktCounter& counterCollectionIs(Mpls::RouteKey key) { return counters_[key.value()]; }
    void counterCollectionDel(Mpls::RouteKey key) noexcept { counters_.erase(key.value()); }

    /// Null when the route has no counter.
    PktCounter* counter(Mpls::RouteKey key) noexcept { return counters_.find(key.value()); }
    const PktCounter* counter(Mpls::RouteKey key) const noexcept {
        return counters_.find(key.value());
    }
    std::size_t size() const noexcept { return counters_.size(); }

    /// Visits (Mpls::RouteKey, const PktCounter&) in no particular order.
    template <typename Visitor>
    void forEach(Visitor&& visitor) const {
        counters_.forEach([&](std::uint64_t key, const PktCounter& counter) {
            visitor(Mpls::RouteKey::fromValue(key), counter);
        });
    }

  private:
    Tessel::FlatMap<PktCounter> counters_;
};

} // namespace Counter
