#pragma once

#include "Mpls/RouteKey.h"
#include "Tessel/Entity.h"
#include "Tessel/FlatMap.h"
#include "Tessel/NamedList.h"

namespace Counter {

/// Packets and bytes.
class PktCounter {
  public:
    std::uint64_t packets() const noexcept { return packets_; }
    std::uint64_t bytes() const noexcept { return bytes_; }

    /// One packet of that many bytes.
    void countBytes(std::uint32_t bytes) noexcept {
        ++packets_;
        bytes_ += bytes;
    }
    void clearCounter() noexcept { *this = PktCounter(); }

  private:
    std::uint64_t packets_ = 0;
    std::uint64_t bytes_ = 0;
};

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

/// The packet counter collections that the agent shows and exports; one of the same name is
/// replaced.
class PktCounterCollectionHolder : public Tessel::NamedList<OvixLfibCounterCollection> {
  public:
    void collectionIs(Ptr<OvixLfibCounterCollection> collection) { add(std::move(collection)); }
    const std::vector<Ptr<OvixLfibCounterCollection>>& collections() const noexcept {
        return items();
    }
};

} // namespace Counter
