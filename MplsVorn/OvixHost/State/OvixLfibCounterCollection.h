#pragma once

#include <array>
#include <bitset>
#include <memory>
#include <utility>

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

    /// The route's counter, created if absent; good until the collection goes.
    PktCounter& counterCollectionIs(Mpls::RouteKey key) {
        if (key.depth() != 1) {
            return deeper_[key.value()];
        }
        const std::uint32_t label = key.topLabel().value();
        std::unique_ptr<Page>& page = pages_[label / Page::labels];
        if (!page) {
            page = std::make_unique<Page>();
        }
        page->exists.set(label % Page::labels);
        return page->counters[label % Page::labels];
    }
    void counterCollectionDel(Mpls::RouteKey key) noexcept {
        if (PktCounter* removed = counter(key); removed != nullptr && key.depth() == 1) {
            removed->clearCounter();
            const std::uint32_t label = key.topLabel().value();
            pages_[label / Page::labels]->exists.reset(label % Page::labels);
        }
        deeper_.erase(key.value());
    }

    /// Counts a packet of that many bytes for a label's route; creates its counter if absent.
    void countBytes(std::uint32_t label, std::uint32_t bytes) {
        Page* const page = pages_[label / Page::labels].get();
        // A counter that has counted exists.
        if (page != nullptr && page->counters[label % Page::labels].packets() > 0) [[likely]] {
            page->counters[label % Page::labels].countBytes(bytes);
            return;
        }
        counterCollectionIs(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label))).countBytes(bytes);
    }
    /// Null when the route has no counter.
    PktCounter* counter(Mpls::RouteKey key) noexcept {
        return const_cast<PktCounter*>(std::as_const(*this).counter(key));
    }
    const PktCounter* counter(Mpls::RouteKey key) const noexcept {
        if (key.depth() != 1) {
            return deeper_.find(key.value());
        }
        const std::uint32_t label = key.topLabel().value();
        const Page* page = pages_[label / Page::labels].get();
        const bool exists = page != nullptr && page->exists.test(label % Page::labels);
        return exists ? &page->counters[label % Page::labels] : nullptr;
    }
    /// Loads the counter of a label ahead of its use.
    void prefetch(std::uint32_t label) const noexcept {
        if (const Page* page = pages_[label / Page::labels].get()) {
            __builtin_prefetch(&page->counters[label % Page::labels]);
        }
    }
    std::size_t size() const noexcept {
        std::size_t counters = deeper_.size();
        for (const std::unique_ptr<Page>& page : pages_) {
            counters += page ? page->exists.count() : 0;
        }
        return counters;
    }

    /// Visits (Mpls::RouteKey, const PktCounter&), routes of one label by label.
    template <typename Visitor>
    void forEach(Visitor&& visitor) const {
        for (std::size_t i = 0; i < pages_.size(); ++i) {
            for (std::size_t at = 0; pages_[i] && at < Page::labels; ++at) {
                if (pages_[i]->exists.test(at)) {
                    const Lumo::MplsLabel label(static_cast<std::uint32_t>(i * Page::labels + at));
                    visitor(Mpls::RouteKey::fromLabel(label), pages_[i]->counters[at]);
                }
            }
        }
        deeper_.forEach([&](std::uint64_t key, const PktCounter& counter) {
            visitor(Mpls::RouteKey::fromValue(key), counter);
        });
    }

  private:
    /// The counters of consecutive labels.
    struct Page {
        static constexpr std::size_t labels = 4096;
        std::array<PktCounter, labels> counters;
        std::bitset<labels> exists;
    };

    std::array<std::unique_ptr<Page>, (Lumo::MplsLabel::max + 1) / Page::labels> pages_;
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
