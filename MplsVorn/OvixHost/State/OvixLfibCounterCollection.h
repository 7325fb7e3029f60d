#pragma once

#include <bit>
#include <utility>

#include "Mpls/RouteKey.h"
#include "Tessel/Entity.h"
#include "Tessel/FlatMap.h"
#include "Tessel/LazyArray.h"
#include "Tessel/NamedList.h"
#include "Tessel/Prefetch.h"

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
    /// Several packets of that many bytes each.
    void countPackets(std::uint32_t packets, std::uint32_t bytes) noexcept {
        packets_ += packets;
        bytes_ += std::uint64_t{packets} * bytes;
    }
    void clearCounter() noexcept { *this = PktCounter(); }
    PktCounter& operator+=(const PktCounter& more) noexcept {
        packets_ += more.packets_;
        bytes_ += more.bytes_;
        return *this;
    }

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

    /// The route's counter, created if absent; good until the collection goes.
    PktCounter& counterCollectionIs(Mpls::RouteKey key) {
        if (key.depth() != 1) {
            return deeper_[key.value()];
        }
        const std::uint32_t label = key.topLabel().value();
        exists_[label / wordBits] |= bit(label);
        return labels_[label];
    }
    void counterCollectionDel(Mpls::RouteKey key) noexcept {
        if (PktCounter* removed = counter(key); removed != nullptr && key.depth() == 1) {
            removed->clearCounter();
            const std::uint32_t label = key.topLabel().value();
            exists_[label / wordBits] &= ~bit(label);
        }
        deeper_.erase(key.value());
    }

    /// Counts a packet of that many bytes for a label's route; creates its counter if absent.
    [[gnu::always_inline]] void countBytes(std::uint32_t label, std::uint32_t bytes) {
        // A counter that has counted exists.
        if (PktCounter& counter = labels_[label]; counter.packets() > 0) [[likely]] {
            counter.countBytes(bytes);
            return;
        }
        countFirst(label, bytes);
    }
    /// The same of several packets of that many bytes each.
    void countPackets(std::uint32_t label, std::uint32_t packets, std::uint32_t bytes) {
        const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
        counterCollectionIs(key).countPackets(packets, bytes);
    }
    /// The counters of routes of one label, by label, of which those exist that have counted.
    PktCounter* ofLabels() noexcept { return &labels_[0]; }
    /// Null when the route has no counter.
    PktCounter* counter(Mpls::RouteKey key) noexcept {
        return const_cast<PktCounter*>(std::as_const(*this).counter(key));
    }
    const PktCounter* counter(Mpls::RouteKey key) const noexcept {
        if (key.depth() != 1) {
            return deeper_.find(key.value());
        }
        const std::uint32_t label = key.topLabel().value();
        const bool exists = (*exists_.at(label / wordBits) & bit(label)) != 0;
        return exists ? labels_.at(label) : nullptr;
    }
    /// Loads the counter of a label ahead of its use.
    [[gnu::always_inline]] void prefetch(std::uint32_t label) const noexcept {
        Tessel::prefetch(labels_.at(label));
    }
    std::size_t size() const noexcept {
        std::size_t counters = deeper_.size();
        for (std::uint32_t word = 0; word < words; ++word) {
            counters += static_cast<std::size_t>(std::popcount(*exists_.at(word)));
        }
        return counters;
    }

    /// Visits (Mpls::RouteKey, const PktCounter&), routes of one label by label.
    template <typename Visitor>
    void forEach(Visitor&& visitor) const {
        for (std::uint32_t label = 0; label <= Lumo::MplsLabel::max; label += labelsAtOnce) {
            visitLabels(label, visitor);
        }
        visitDeeper(visitor);
    }
    static constexpr std::uint32_t labelsAtOnce = 64;
    /// Visits the routes of one label among `labelsAtOnce` labels; `first` is a multiple of it.
    template <typename Visitor>
    void visitLabels(std::uint32_t first, Visitor&& visitor) const {
        static_assert(labelsAtOnce == wordBits);
        for (std::uint64_t left = *exists_.at(first / wordBits); left != 0; left &= left - 1) {
            const Lumo::MplsLabel label(first + static_cast<std::uint32_t>(std::countr_zero(left)));
            visitor(Mpls::RouteKey::fromLabel(label), *labels_.at(label.value()));
        }
    }
    /// Adds what `other` has counted for routes of one label among `labelsAtOnce` labels; `other`
    /// loses those counters. One that is absent here is created if `mayCreate(label)`.
    template <typename MayCreate>
    void absorbLabels(std::uint32_t first, OvixLfibCounterCollection& other,
                      const MayCreate& mayCreate) {
        other.visitLabels(first, [&](Mpls::RouteKey key, const PktCounter& counted) {
            if (counter(key) != nullptr || mayCreate(key.topLabel().value())) {
                counterCollectionIs(key) += counted;
            }
            other.counterCollectionDel(key);
        });
    }
    /// Visits the routes of several labels.
    template <typename Visitor>
    void visitDeeper(Visitor&& visitor) const {
        deeper_.forEach([&](std::uint64_t key, const PktCounter& counter) {
            visitor(Mpls::RouteKey::fromValue(key), counter);
        });
    }

  private:
    [[gnu::noinline]] void countFirst(std::uint32_t label, std::uint32_t bytes) {
        counterCollectionIs(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label))).countBytes(bytes);
    }
    static constexpr std::uint32_t wordBits = 64;
    static constexpr std::uint32_t words = (Lumo::MplsLabel::max + 1) / wordBits;

    static std::uint64_t bit(std::uint32_t label) noexcept {
        return std::uint64_t{1} << label % wordBits;
    }

    Tessel::LazyArray<PktCounter> labels_{Lumo::MplsLabel::max + 1}; ///< of routes of one label
    Tessel::LazyArray<std::uint64_t> exists_{words};                 ///< a bit for each of them
    Tessel::FlatMap<PktCounter> deeper_; ///< of routes of several labels
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
