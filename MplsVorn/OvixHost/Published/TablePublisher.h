#pragma once

#include <array>
#include <string>

#include "Mpls/Hardware/StatusWriter.h"
#include "Mpls/LfibWriter.h"
#include "Mpls/TableDirectory.h"
#include "Published/InterfaceNames.h"
#include "Published/IpRoutes.h"
#include "Published/LabelRoutes.h"
#include "Published/Pseudowires.h"
#include "State/MvpnIntfWriter.h"
#include "Tables/TableWriter.h"

namespace Mpls {

/// The writing side of all tables of a system. Changes to any of them are one batch, which becomes
/// visible at once when it is committed. There is one publisher at a time; it takes over what
/// the last one left.
class TablePublisher {
  public:
    /// Throws as Tessel::TableWriter does.
    explicit TablePublisher(Tessel::TableMemory memory,
                            std::chrono::milliseconds keptFor = Tessel::TableHeap::keptFor);
    TablePublisher(const TablePublisher&) = delete;
    TablePublisher& operator=(const TablePublisher&) = delete;
    ~TablePublisher() = default;

    LfibWriter& lfib(TableId table) { return lfibs_[static_cast<std::size_t>(table)]; }
    Hardware::StatusWriter& hardware() noexcept { return hardware_; }
    Routing::Multicast::MvpnIntfWriter& mvpn() noexcept { return mvpn_; }
    /// The label routes of all owners: to be changed there and not in the LFIBs, where there are
    /// several.
    LabelRoutes& labelRoutes() noexcept { return labelRoutes_; }
    LfibWriter& waiting() noexcept { return waiting_; }
    Interface::NamesWriter& interfaces() noexcept { return interfaces_; }
    L3::RoutesWriter& ipRoutes() noexcept { return ipRoutes_; }
    L2::PseudowiresWriter& pseudowires() noexcept { return pseudowires_; }

    void commit() { tables_.commit(); }
    /// Takes back what has been changed since the last commit.
    void discard();
    const Tessel::TableWriter& tables() const noexcept { return tables_; }

    /// See Tessel::TableWriter. For SharedPublisher.
    void unlock() noexcept { tables_.unlock(); }
    bool lockAgain(std::chrono::milliseconds wait) { return tables_.lockAgain(wait); }

  private:
    Tessel::TableWriter tables_;
    std::array<LfibWriter, lfibs> lfibs_;
    Hardware::StatusWriter hardware_;
    Routing::Multicast::MvpnIntfWriter mvpn_;
    Interface::NamesWriter interfaces_;
    L3::RoutesWriter ipRoutes_;
    L2::PseudowiresWriter pseudowires_;
    LfibWriter waiting_;
    LabelRoutes labelRoutes_;
};

} // namespace Mpls
