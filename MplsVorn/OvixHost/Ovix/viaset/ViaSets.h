#pragma once

#include <array>
#include <cassert>
#include <cstdint>

#include "Mpls/Hardware/Adjacency.h"
#include "Mpls/LfibRecords.h"
#include "Mpls/OvixMplsVia.h"
#include "Mpls/Types.h"
#include "State/EthIntfStatusDir.h"
#include "State/MvpnIntfStatus.h"
#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"

namespace Ovix {

/// How frames with one label are forwarded: vias with weights, of which one is chosen or, in a
/// multicast set, all are used. Never changed once built. Indices run from 0 to numVias() - 1.
class OvixMplsViaSet : public Tessel::Counted {
  public:
    virtual std::uint32_t numVias() const noexcept = 0;
    virtual Mpls::LfibViaType viaType(std::uint32_t index) const noexcept = 0;
    virtual std::uint32_t weight(std::uint32_t index) const noexcept = 0;
    /// An invalid via when the record cannot be read.
    virtual OvixMplsVia via(std::uint32_t index) const = 0;
    virtual Mpls::LfibViaSetType type() const noexcept = 0;
    /// The key under which the table of the via's type holds it; the default key when the set was
    /// not built from a table.
    virtual Mpls::LfibViaKey viaKey(std::uint32_t) const noexcept { return {}; }

    /// The table that the set was read from; null when it was not read from one.
    virtual const Mpls::LfibViaSource* source() const noexcept { return nullptr; }

    bool isMulticast() const noexcept { return type() == Mpls::LfibViaSetType::multicast; }
};

/// The vias of an LFIB via set: the members of the record, each a via of its one key's type. A via
/// is read from the table that the record came from when it is asked for.
class OvixLfibViaSet final : public OvixMplsViaSet, public Tessel::Slabbed<OvixLfibViaSet> {
  public:
    OvixLfibViaSet(const Mpls::LfibViaSet& record, const Mpls::LfibViaKey& key)
        : record_(record), key_(key) {}

    std::uint32_t numVias() const noexcept override { return record_.members.size(); }
    Mpls::LfibViaType viaType(std::uint32_t) const noexcept override { return key_.viaType; }
    std::uint32_t weight(std::uint32_t index) const noexcept override {
        return record_.members[index].weight;
    }
    OvixMplsVia via(std::uint32_t index) const override {
        return record_.source ? record_.source->ipVia(record_.members[index]) : OvixMplsVia();
    }
    Mpls::LfibViaSetType type() const noexcept override { return record_.type; }
    Mpls::LfibViaKey viaKey(std::uint32_t index) const noexcept override {
        Mpls::LfibViaKey key = key_;
        key.index = record_.members[index].viaIndex;
        key.check = record_.members[index].check;
        return key;
    }
    const Mpls::LfibViaSource* source() const noexcept override { return record_.source.get(); }
    const Mpls::LfibViaSet& record() const noexcept { return record_; }

  private:
    Mpls::LfibViaSet record_;
    Mpls::LfibViaKey key_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixLfibViaSet>;

namespace Ovix {

/// The tail of a multicast LSP: its last via is the lookup, whose interface is that of the VRF.
/// Where the LSP branches at its tail (a bud node, RFC 6388 section 1.2) the record's further
/// members come first: IP vias, read from the table that the record came from. The lookup's
/// delivery to the CPU cannot be undone, so that no via is read after it.
class OvixMulticastDecapViaSet final : public OvixMplsViaSet,
                                       public Tessel::Slabbed<OvixMulticastDecapViaSet> {
  public:
    OvixMulticastDecapViaSet(const Mpls::LfibViaSet& record,
                             const Mpls::LfibMulticastIpLookupVia& via)
        : record_(record), via_(via) {}

    std::uint32_t numVias() const noexcept override {
        return record_.members.empty() ? 1 : record_.members.size();
    }
    Mpls::LfibViaType viaType(std::uint32_t index) const noexcept override {
        return isTail(index) ? Mpls::LfibViaType::multicastIpLookup : Mpls::LfibViaType::ip;
    }
    std::uint32_t weight(std::uint32_t index) const noexcept override {
        return isTail(index) ? 1 : record_.members[index + 1].weight;
    }
    /// The last one is invalid when the record of the lookup is the default one.
    OvixMplsVia via(std::uint32_t index) const override {
        return isTail(index) ? tail() : branch(index);
    }
    Mpls::LfibViaSetType type() const noexcept override { return record_.type; }
    const Mpls::LfibMulticastIpLookupVia& lookupVia() const noexcept { return via_; }

  private:
    bool isTail(std::uint32_t index) const noexcept {
        assert(index < numVias());
        return index + 1 == numVias();
    }
    OvixMplsVia tail() const noexcept {
        OvixMplsVia via;
        via.intfId = via_.intf();
        via.payloadType = via_.payloadType;
        return via;
    }
    // The record's first member is the lookup's.
    OvixMplsVia branch(std::uint32_t index) const {
        return record_.source ? record_.source->ipVia(record_.members[index + 1]) : OvixMplsVia();
    }

    Mpls::LfibViaSet record_;
    Mpls::LfibMulticastIpLookupVia via_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixMulticastDecapViaSet>;

namespace Ovix {

/// Decides which entries of a hardware adjacency are usable.
class HwStatusViaHelper : public Tessel::Counted {
  public:
    HwStatusViaHelper(Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir,
                      Ptr<const Routing::Multicast::MvpnIntfStatus> mvpnIntfStatus)
        : ethIntfStatusDir_(std::move(ethIntfStatusDir)),
          mvpnIntfStatus_(std::move(mvpnIntfStatus)) {}

    /// A via whose Ethernet interface is down is not usable. One without an interface is: its
    /// next hop is resolved later. So is every via while no interface status is published.
    bool usable(Lumo::IntfId intf) const noexcept {
        return !ethIntfStatusDir_ || intf.kind() != Lumo::IntfId::Kind::ethernet ||
               ethIntfStatusDir_->operUp(intf);
    }

    const Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir() const noexcept {
        return ethIntfStatusDir_;
    }
    const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus() const noexcept {
        return mvpnIntfStatus_;
    }

  private:
    Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
    Ptr<const Routing::Multicast::MvpnIntfStatus> mvpnIntfStatus_;
};

/// The usable vias of a hardware adjacency, or of its backups; these also when no via is
/// usable, so that they take over at once when a link goes down. What is not usable is left out of
/// the set, so that its share goes to the others by their weights.
class OvixHwViaSet final : public OvixMplsViaSet, public Tessel::Slabbed<OvixHwViaSet> {
  public:
    OvixHwViaSet(Ptr<const Mpls::Hardware::Adjacency> adjacency,
                 const Ptr<HwStatusViaHelper>& helper, bool useBackups);

    /// At least one usable via; where one of several is chosen by weight, not all of weight 0.
    bool hasValidVia() const noexcept {
        return totalWeight_ > 0 || count_ == 1 || (count_ > 1 && isMulticast());
    }
    bool useBackups() const noexcept { return useBackups_; }

    std::uint32_t numVias() const noexcept override { return count_; }
    Mpls::LfibViaType viaType(std::uint32_t) const noexcept override {
        return adjacency_->viaType();
    }
    std::uint32_t weight(std::uint32_t index) const noexcept override {
        assert(index < count_);
        return adjacency_->entries(useBackups_)[usable_[index]].weight;
    }
    OvixMplsVia via(std::uint32_t index) const override {
        assert(index < count_);
        return adjacency_->via(useBackups_, usable_[index]);
    }
    Mpls::LfibViaSetType type() const noexcept override { return adjacency_->setType(); }

  private:
    void takeUsable(const Ptr<HwStatusViaHelper>& helper);

    Ptr<const Mpls::Hardware::Adjacency> adjacency_;
    std::uint64_t totalWeight_ = 0;
    std::uint32_t count_ = 0;
    bool useBackups_;
    std::array<std::uint16_t, Mpls::LfibViaSet::capacity> usable_; ///< the first count_ are set
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixHwViaSet>;
