#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "Mpls/Hardware/Status.h"
#include "Mpls/LfibStatus.h"
#include "Mpls/TableDirectory.h"
#include "State/MvpnIntfStatus.h"
#include "Tables/TableChanges.h"
#include "Tables/TableReader.h"

namespace Mpls {

/// The reading side of all tables of a system: the entities that plugins mount, all of one
/// generation, which also report its changes to their subscribers.
class PublishedTables {
  public:
    explicit PublishedTables(Ptr<Tessel::TableReader> tables);
    PublishedTables(const PublishedTables&) = delete;
    PublishedTables& operator=(const PublishedTables&) = delete;
    ~PublishedTables() = default;

    const Ptr<LfibStatus>& lfib(TableId table) const noexcept {
        return lfibs_[static_cast<std::size_t>(table)];
    }
    const Ptr<Hardware::Status>& hardware() const noexcept { return hardware_; }
    const Ptr<Routing::Multicast::MvpnIntfStatus>& mvpn() const noexcept { return mvpn_; }
    const Tessel::TableReader& tables() const noexcept { return *tables_; }
    Ptr<const Tessel::TableReader> reader() const noexcept { return tables_; }

    /// To be called when subscribers have been added or removed.
    void noticeSubscribers();

    /// Goes over to the newest generation and reports some of the changes to the subscribers: a
    /// page's worth per call, so that no frame waits for a hundred thousand changes. To be called
    /// between frames. A damaged newest generation is reported to every table's corruption hook,
    /// and the one held is kept.
    void refresh() {
        if (tables_->refreshNeeded() || reporting_) [[unlikely]] {
            takeNewest();
        }
    }

    /// Goes over to tables of the same kind in other memory, and reports what differs as `refresh`
    /// does. Throws Tessel::CorruptionDetected, with nothing changed, when it holds none.
    void memoryIs(Tessel::TableMemory memory);

    /// Tables' corruptions detected so far, in all.
    std::uint64_t corruptionsDetected() const noexcept;
    /// One of them; empty while there is none.
    std::string lastCorruption() const;

  private:
    struct Watched {
        std::size_t table;
        const Tessel::Entity* entity;
        Tessel::AttrId attribute;
        bool keysAreLabels;
        std::unique_ptr<Tessel::TableChanges> changes; ///< while there are subscribers
    };

    void takeNewest();
    void restartChanges();
    void report(Watched& watched);
    void corruptionDetected(const char* message) const;

    Ptr<Tessel::TableReader> tables_;
    std::array<Ptr<LfibStatus>, lfibs> lfibs_;
    Ptr<Hardware::Status> hardware_;
    Ptr<Routing::Multicast::MvpnIntfStatus> mvpn_;
    std::array<Watched, lfibs + 3> watched_;
    bool reporting_ = false; ///< there are changes left to report
};

} // namespace Mpls
