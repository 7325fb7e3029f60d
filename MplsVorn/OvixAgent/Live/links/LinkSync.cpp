#include "Live/links/LinkSync.h"

#include <algorithm>
#include <cassert>
#include <system_error>

namespace OvixAgent {

LinkSync::LinkSync(const AgentConfig& config, ForwardingTables& forwarding,
                   Ptr<Interface::EthIntfStatusDir> interfaces, LivePorts& ports)
    : forwarding_(&forwarding), interfaces_(std::move(interfaces)), ports_(&ports),
      monitor_(events()) {
    for (const PortConfig& port : config.ports) {
        ofPort_.push_back({0, port.parent, port.mac, port.ownMtu ? port.mtu : 0});
        ofPort_.back().isParentUp = !port.isSubInterface();
        interfaces_->intfStatusIs(Lumo::IntfId(port.name), false);
    }
    forwarding_->neighbours.solicitsIs(true);
    configure(config);
}

void LinkSync::configure(const AgentConfig& config) {
    assert(config.ports.size() == ofPort_.size());
    for (PortIndex i = 0; i < ofPort_.size(); ++i) {
        ofPort_[i].isEnabled = config.ports[i].isUp;
        upIs(i, ofPort_[i].isLinkUp);
    }
}

LinkEvents LinkSync::events() {
    LinkEvents events;
    events.linkIs = [this](const LinkState& link) { linkIs(link); };
    events.linkDel = [this](const LinkState& link) { linkDel(link); };
    events.neighbourIs = [this](const NeighbourState& neighbour) { neighbourIs(neighbour); };
    events.neighbourDel = [this](const NeighbourState& neighbour) { neighbourDel(neighbour); };
    return events;
}

void LinkSync::linkIs(const LinkState& link) {
    for (PortIndex i = 0; i < ofPort_.size(); ++i) {
        const PortIndex parent = ofPort_[i].parent;
        if (isOf(i, link)) {
            takeOver(i, link);
        } else if (parent != noPort && isOf(parent, link)) {
            takeOverFromParent(i, link);
        }
    }
}

bool LinkSync::isOf(PortIndex port, const LinkState& link) const {
    const std::uint32_t own = ofPort_[port].link;
    return own != 0 ? own == link.index : forwarding_->ports.ports()[port].name == link.name;
}

/// An interface may have got the name of the port while it still had another one.
void LinkSync::findAnother(PortIndex port) {
    if (const LinkState* link = monitor_.linkNamed(forwarding_->ports.ports()[port].name)) {
        linkIs(LinkState(*link));
    }
}

void LinkSync::takeOver(PortIndex index, const LinkState& link) {
    OfPort& own = ofPort_[index];
    const bool isMtuGreater = link.mtu > forwarding_->ports.ports()[index].mtu;
    macIs(index, macOf(own, link));
    forwarding_->ports.mtuIs(index, mtuOf(own, link));
    LivePort& live = ports_->port(index);
    if (own.parent == noPort && (!live.isOpen() || own.link != link.index || isMtuGreater)) {
        live.reopen();
    }
    own.link = link.index;
    own.isDisabled = !link.isEnabled;
    upIs(index, link.isUp());
}

/// An interface gets the MAC of its port once: the kernel takes frames for its own address, and
/// answers ARP with that. What somebody else changes later is so.
Lumo::EthAddr LinkSync::macOf(const OfPort& own, const LinkState& link) {
    if (own.mac == Lumo::EthAddr{} || own.mac == link.mac || own.link == link.index) {
        return link.mac;
    }
    try {
        setMacOfInterface(link.name, own.mac);
        return own.mac;
    } catch (const std::system_error& refused) {
        ports_->tell(link.name + ": " + refused.what() + "; it keeps its own");
        return link.mac;
    }
}

/// Frames for the MAC of a VLAN device come in at its parent.
void LinkSync::macIs(PortIndex index, const Lumo::EthAddr& mac) {
    if (forwarding_->ports.ports()[index].mac != mac) {
        forwarding_->ports.macIs(index, mac);
        ports_->intakesAre(forwarding_->pseudowires, forwarding_->ports);
    }
}

/// What a sub-interface sends has to fit through the interface that takes it.
std::uint32_t LinkSync::mtuOf(const OfPort& own, const LinkState& link) noexcept {
    const bool isBounded = own.mtu == 0 || (own.parent != noPort && link.mtu < own.mtu);
    return isBounded ? link.mtu : own.mtu;
}

void LinkSync::takeOverFromParent(PortIndex index, const LinkState& link) {
    OfPort& own = ofPort_[index];
    own.isParentUp = link.isUp();
    if (own.link == 0) {
        macIs(index, link.mac);
        forwarding_->ports.mtuIs(index, mtuOf(own, link));
    }
    upIs(index, own.link == 0 ? link.isUp() : own.isLinkUp);
}

void LinkSync::linkDel(const LinkState& link) {
    const auto port = portOf(link.index);
    if (!port) {
        return;
    }
    ofPort_[*port].link = 0;
    if (const PortIndex parent = ofPort_[*port].parent; parent != noPort) {
        upIs(*port, ofPort_[*port].isParentUp);
        if (const LinkState* left = monitor_.link(ofPort_[parent].link)) {
            takeOverFromParent(*port, LinkState(*left));
        }
        findAnother(*port);
        return;
    }
    upIs(*port, false);
    for (PortIndex i = 0; i < ofPort_.size(); ++i) {
        if (ofPort_[i].parent == *port) {
            ofPort_[i].isParentUp = false;
            upIs(i, false);
        }
    }
    findAnother(*port);
}

void LinkSync::upIs(PortIndex index, bool up) {
    assert(index < ofPort_.size());
    const Port& port = forwarding_->ports.ports()[index];
    ofPort_[index].isLinkUp = up;
    forwarding_->ports.upIs(index, up && ofPort_[index].isEnabled && ofPort_[index].isParentUp);
    interfaces_->intfStatusIs(port.intfId, port.isUp);
}

PortDown LinkSync::downBecause(PortIndex port) const noexcept {
    const OfPort& own = ofPort_[port];
    return forwarding_->ports.ports()[port].isUp   ? PortDown::none
           : !own.isEnabled                        ? PortDown::configured
           : !own.isParentUp                       ? PortDown::parent
           : own.link == 0 && own.parent == noPort ? PortDown::absent
           : own.isDisabled                        ? PortDown::disabled
                                                   : PortDown::noCarrier;
}

std::optional<PortIndex> LinkSync::portOf(std::uint32_t link) const {
    for (PortIndex i = 0; i < ofPort_.size(); ++i) {
        if (ofPort_[i].link == link && link != 0) {
            return i;
        }
    }
    return std::nullopt;
}

void LinkSync::neighbourIs(const NeighbourState& neighbour) {
    const auto port = portOf(neighbour.link);
    if (!port) {
        return;
    }
    const Lumo::IpGenAddr& address = neighbour.address;
    if (!neighbour.mac) {
        // The kernel reports one that is removed while it is known as failed, too.
        const bool wasKnown = forwarding_->neighbours.find(address, *port) != nullptr;
        forwarding_->neighbours.forget(address, *port);
        if (neighbour.reach == NeighbourState::Reach::failed && !wasKnown) {
            forwarding_->neighbours.fail(address, *port);
        }
        return;
    }
    forwarding_->neighbours.learn(address, *port, *neighbour.mac);
    if (neighbour.reach == NeighbourState::Reach::stale) {
        // The agent's frames do not make the kernel confirm the neighbour.
        forwarding_->neighbours.wanted().want({address, *port}, Solicits::By::route, *port, {});
    }
}

void LinkSync::neighbourDel(const NeighbourState& neighbour) {
    if (const auto port = portOf(neighbour.link)) {
        forwarding_->neighbours.forget(neighbour.address, *port);
    }
}

const LinkState* LinkSync::fallen(const OfPort& port) const {
    const bool mayFall = port.isLinkUp && port.parent == noPort; // others fall with theirs
    const LinkState* const link = mayFall ? monitor_.link(port.link) : nullptr;
    return link != nullptr && flags_.isDown(link->name) ? link : nullptr;
}

std::chrono::microseconds LinkSync::lookEvery() const noexcept {
    constexpr std::chrono::microseconds least{100};
    constexpr std::chrono::microseconds ofPort{25};
    return std::max(least, ofPort * static_cast<int>(ofPort_.size()));
}

bool LinkSync::checkCarriers(Clock::time_point now) {
    const bool wasNoticed = isNoticed_.exchange(false);
    if (!wasNoticed && now - checkedAt_ < lookEvery()) {
        return false;
    }
    checkedAt_ = now;
    bool isAny = wasNoticed;
    for (const OfPort& port : ofPort_) {
        if (const LinkState* const link = fallen(port)) {
            const ForwardingGate::Closed closed(forwarding_->gate);
            monitor_.carrierDel(link->index);
            isAny = true;
        }
    }
    return isAny;
}

std::function<bool()> LinkSync::watch() {
    return [this, lookedAt = Clock::time_point()]() mutable {
        const auto now = Clock::now();
        if (now - lookedAt < lookEvery()) {
            return false;
        }
        lookedAt = now;
        const bool isAny = std::any_of(ofPort_.begin(), ofPort_.end(), [this](const OfPort& port) {
            return fallen(port) != nullptr;
        });
        if (isAny) {
            isNoticed_ = true;
        }
        return isAny;
    };
}

void LinkSync::solicit() {
    for (const Solicits::Neighbour& wanted : forwarding_->neighbours.wanted().take()) {
        assert(wanted.port < ofPort_.size());
        if (const std::uint32_t link = ofPort_[wanted.port].link; link != 0) {
            monitor_.solicit(link, wanted.address);
        }
    }
}

} // namespace OvixAgent
