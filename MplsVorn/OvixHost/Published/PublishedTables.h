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
/// generation, and the telling of their subscribers when another one is taken.
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

    /// To be called when subscribers have come or gone: from now on those there are, are told.
    void noticeSubscribers();

    /// Goes over to the newest generation and tells the subscribers of some of what has changed: a
    /// page's worth per call, so that nobody waits while a hundred thousand changes are told. To be
    /// called between frames. A newest generation that cannot be right is told to every table's
    /// corruption hook, and the one held is kept.
    void refresh() {
        if (tables_->refreshNeeded() || telling_) [[unlikely]] {
            takeNewest();
        }
    }
    /// The same, until there is nothing more to tell.
    void refreshWholly();

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
        std::unique_ptr<Tessel::TableChanges> changes; ///< while somebody has subscribed
    };

    void takeNewest();
    void tell(Watched& watched);
    void corruptionDetected(const char* message) const;

    Ptr<Tessel::TableReader> tables_;
    std::array<Ptr<LfibStatus>, lfibs> lfibs_;
    Ptr<Hardware::Status> hardware_;
    Ptr<Routing::Multicast::MvpnIntfStatus> mvpn_;
    std::array<Watched, lfibs + 3> watched_;
    bool telling_ = false;
};

} // namespace Mpls
