#include "Published/PublishedTables.h"

#include <utility>

#include "Tessel/Changes.h"
#include "Tessel/Exceptions.h"

namespace Mpls {

PublishedTables::PublishedTables(Ptr<Tessel::TableReader> tables)
    : tables_(std::move(tables)), hardware_(Tessel::make<Hardware::Status>(tables_)),
      mvpn_(Tessel::make<Routing::Multicast::MvpnIntfStatus>(tables_)) {
    for (std::size_t i = 0; i < lfibs; ++i) {
        lfibs_[i] = Tessel::make<LfibStatus>(tables_, static_cast<TableId>(i));
        watched_[i] = {i, lfibs_[i].get(), LfibStatus::routeAttr, true, nullptr};
    }
    const auto watch = [&](TableId table, const Tessel::Entity& entity, Tessel::AttrId attribute,
                           bool keysAreLabels) {
        const auto at = static_cast<std::size_t>(table);
        watched_[at] = {at, &entity, attribute, keysAreLabels, nullptr};
    };
    watch(TableId::hardwareRoutes, *hardware_, Hardware::Status::routeAttr, true);
    watch(TableId::hardwareAdjacencies, *hardware_, Hardware::Status::adjacencyAttr, false);
    watch(TableId::mvpnIntfStatus, *mvpn_, Routing::Multicast::MvpnIntfStatus::vrfIntfIdAttr,
          false);
}

// Changes are found by comparing with what was there when the first subscriber was added.
void PublishedTables::noticeSubscribers() {
    for (Watched& watched : watched_) {
        if (!watched.entity->hasSubscribers()) {
            watched.changes.reset();
        } else if (!watched.changes) {
            try {
                watched.changes = std::make_unique<Tessel::TableChanges>(tables_, watched.table);
            } catch (const Tessel::SnapshotLost&) {
                // With the next generation, then: what changed before does not concern a new
                // subscriber.
            }
        }
    }
}

void PublishedTables::takeNewest() {
    Tessel::Changes::notice();
    reporting_ = false;
    noticeSubscribers();
    try {
        if (tables_->refresh()) {
            restartChanges();
        }
    } catch (const Tessel::CorruptionDetected& corruption) {
        corruptionDetected(corruption.what());
    }
    for (Watched& watched : watched_) {
        report(watched);
    }
}

void PublishedTables::memoryIs(Tessel::TableMemory memory) {
    tables_->memoryIs(std::move(memory));
    Tessel::Changes::notice();
    restartChanges();
    reporting_ = true;
}

void PublishedTables::restartChanges() {
    for (Watched& watched : watched_) {
        if (watched.changes) {
            watched.changes->restart();
        }
    }
    noticeSubscribers();
}

void PublishedTables::report(Watched& watched) {
    if (!watched.changes || watched.changes->done()) {
        return;
    }
    try {
        const bool all = watched.changes->look(1, [&](std::uint32_t key) {
            watched.entity->publish(
                watched.attribute,
                watched.keysAreLabels ? RouteKey::fromLabel(Lumo::MplsLabel(key)).value() : key);
        });
        reporting_ = reporting_ || !all;
    } catch (const Tessel::CorruptionDetected& corruption) {
        corruptionDetected(corruption.what());
        reporting_ = true; // the next pages are reported all the same
    } catch (const Tessel::SnapshotLost&) {
        reporting_ = true; // there is a newer generation to go over to
    }
}

void PublishedTables::corruptionDetected(const char* message) const {
    for (const Ptr<LfibStatus>& lfib : lfibs_) {
        lfib->doCorruptionDetected(message);
    }
    hardware_->doCorruptionDetected(message);
    mvpn_->doCorruptionDetected(message);
}

std::uint64_t PublishedTables::corruptionsDetected() const noexcept {
    std::uint64_t all = hardware_->corruptionsDetected() + mvpn_->corruptionsDetected();
    for (const Ptr<LfibStatus>& lfib : lfibs_) {
        all += lfib->corruptionsDetected();
    }
    return all;
}

std::string PublishedTables::lastCorruption() const {
    for (const Ptr<LfibStatus>& lfib : lfibs_) {
        if (lfib->corruptionsDetected() > 0) {
            return lfib->lastCorruption();
        }
    }
    return hardware_->corruptionsDetected() > 0 ? hardware_->lastCorruption()
                                                : mvpn_->lastCorruption();
}

} // namespace Mpls
