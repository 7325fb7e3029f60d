#pragma once

#include <cstdint>

#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Ovix/routing/RewriteInfo.h"
#include "Tessel/Ptr.h"
#include "Tessel/PtrList.h"
#include "Tessel/Slab.h"

namespace Ovix {

/// One forwarding decision: where the frame goes and how it is rewritten.
class RoutingNexthop final : public Tessel::Counted, public Tessel::Slabbed<RoutingNexthop> {
  public:
    explicit RoutingNexthop(Lumo::IntfId intf) noexcept : intf_(intf) {}

    /// The egress interface; empty: found by routing the address.
    Lumo::IntfId intfId() const noexcept { return intf_; }
    void intfIdIs(Lumo::IntfId intf) noexcept { intf_ = intf; }

    /// The next hop's address; of no family: none.
    const Lumo::IpGenAddr& address() const noexcept { return address_; }
    void addressIs(const Lumo::IpGenAddr& address) noexcept { address_ = address; }

    /// The VRF in which the payload is routed next; empty: unchanged.
    const L3::VrfName& vrfName() const noexcept { return vrfName_; }
    void vrfNameIs(const L3::VrfName& name) noexcept { vrfName_ = name; }

    /// The largest packet this next hop takes, without its Ethernet header; 0: the interface's MTU.
    std::uint32_t mtu() const noexcept { return mtu_; }
    void mtuIs(std::uint32_t mtu) noexcept { mtu_ = mtu; }

    /// The 802.1Q VLAN id to send with; 0: as the interface does.
    std::uint16_t vlanId() const noexcept { return vlanId_; }
    void vlanIdIs(std::uint16_t vlan) noexcept { vlanId_ = vlan; }

    /// Whether this is one copy of a multicast frame: without an address it goes to all stations on
    /// the interface's link.
    bool isReplica() const noexcept { return isReplica_; }
    void isReplicaIs(bool on) noexcept { isReplica_ = on; }

    RewriteInfos& rewriteInfos() noexcept { return rewriteInfos_; }
    const RewriteInfos& rewriteInfos() const noexcept { return rewriteInfos_; }

    /// Makes the agent punt the frame to the CPU instead of sending it.
    void setCpuTrapNexthop() noexcept { intf_ = Lumo::CpuIntfId::cpuIdToIntfId(0); }
    bool isCpuTrapNexthop() const noexcept { return intf_ == Lumo::CpuIntfId::cpuIdToIntfId(0); }

    /// Neither an interface nor an address.
    bool unresolved() const noexcept { return intf_.empty() && address_ == Lumo::IpGenAddr(); }

  private:
    RewriteInfos rewriteInfos_;
    Lumo::IntfId intf_;
    Lumo::IpGenAddr address_;
    std::uint32_t mtu_ = 0;
    std::uint16_t vlanId_ = 0;
    bool isReplica_ = false;
    L3::VrfName vrfName_;
};

/// Next hops in order of preference.
class RoutingNexthops final : public Tessel::Counted, public Tessel::Slabbed<RoutingNexthops> {
  public:
    using List = Tessel::PtrList<RoutingNexthop, 4>;

    void nexthopEnq(const Ptr<RoutingNexthop>& nexthop) { nexthops_.push(nexthop); }
    void nexthopEnq(Ptr<RoutingNexthop>&& nexthop) { nexthops_.push(std::move(nexthop)); }

    /// The list must not be empty.
    const Ptr<RoutingNexthop>& nexthopFront() const noexcept { return nexthops_.front(); }
    std::size_t size() const noexcept { return nexthops_.size(); }
    bool empty() const noexcept { return nexthops_.empty(); }
    List::Iterator begin() const noexcept { return nexthops_.begin(); }
    List::Iterator end() const noexcept { return nexthops_.end(); }

  private:
    List nexthops_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::RoutingNexthop>;
extern template class Tessel::Slabbed<Ovix::RoutingNexthops>;
extern template class Tessel::Slabbed<Tessel::PtrListChunk<Ovix::RoutingNexthop>>;
