#pragma once

#include "Lumo/IpGenAddr.h"
#include "Ovix/rewrite/RewriteImpl.h"
#include "State/DropListener.h"
#include "State/FecTable.h"
#include "State/ForwardingGate.h"
#include "State/Frame.h"
#include "State/Neighbours.h"
#include "State/PortTable.h"
#include "State/Pseudowires.h"
#include "State/VrfRoot.h"
#include "Tessel/Changes.h"

namespace OvixAgent {

/// What a configuration alone determines of the forwarding tables; may be made by a thread beside
/// the one that forwards.
struct ConfiguredTables {
    /// Of the ports only their ids are read.
    ConfiguredTables(const AgentConfig& config, const PortTable& ports)
        : neighbours(config), fecs(config.fecs),
          vrfs(Tessel::make<VrfRoot>(config, ports, neighbours)) {}
    ConfiguredTables(const ConfiguredTables&) = delete;
    ConfiguredTables& operator=(const ConfiguredTables&) = delete;
    ~ConfiguredTables() = default;

    Neighbours neighbours;
    FecTable fecs;
    Ptr<VrfRoot> vrfs;
};

/// What frames are forwarded by beside the label tables, made from a configuration.
struct ForwardingTables {
    explicit ForwardingTables(const AgentConfig& config)
        : ports(config.ports), neighbours(config), fecs(config.fecs), pseudowires(config),
          vrfs(Tessel::make<VrfRoot>(config, ports, neighbours)) {}
    ForwardingTables(const ForwardingTables&) = delete;
    ForwardingTables& operator=(const ForwardingTables&) = delete;
    ~ForwardingTables() = default;

    /// Takes over all but what belongs to the ports' links, which must be the same. The counts of
    /// pseudowires restart at zero.
    void configure(const AgentConfig& config) {
        ConfiguredTables made(config, ports);
        swap(made, config);
    }
    /// The same with what has been made of the configuration; what was there before is given back.
    /// Pseudowires are made here: packets and decisions hold handles of their next hops.
    void swap(ConfiguredTables& made, const AgentConfig& config) {
        const ForwardingGate::Closed closed(gate);
        neighbours.configuredAre(made.neighbours);
        std::swap(fecs, made.fecs);
        std::vector<L2::Pseudowire> signalled = pseudowires.signalled();
        pseudowires = Pseudowires(config);
        pseudowires.signalledAre(std::move(signalled), ports);
        vrfs.swap(made.vrfs);
        ports.configure(config.ports);
        ++configured;
        Tessel::Changes::notice();
    }

    /// Replaces the pseudowires that a control plane signals.
    void signalledAre(std::vector<L2::Pseudowire> all) {
        const ForwardingGate::Closed closed(gate);
        pseudowires.signalledAre(std::move(all), ports);
        ++configured;
        Tessel::Changes::notice();
    }

    PortTable ports;
    Neighbours neighbours;
    FecTable fecs;
    Pseudowires pseudowires;
    Ptr<VrfRoot> vrfs;
    ForwardingGate gate;           ///< to be closed while what other threads forward by is changed
    DropListener* drops = nullptr; ///< answers about dropped packets; may be null
    std::uint64_t configured = 0;  ///< how often all decisions have become void
};

/// Where a packet leaves: the port, the MAC address that it is sent to, and what is done to it
/// first.
struct Egress {
    Port* port = nullptr;
    Lumo::EthAddr mac{};
    Lumo::IpGenAddr neighbour;  ///< that it is sent to; of no family: it needs none
    Lumo::IpGenAddr unresolved; ///< the neighbour whose MAC address is not known; else of no family
    Solicits::By namedBy = Solicits::By::route; ///< of the neighbour
    Pseudowire* pseudowire = nullptr;           ///< of which the port is the attachment circuit
    bool isIpHop = false;                       ///< the packet was routed by its own destination
    Ovix::RewriteImpl* push = nullptr;          ///< the label stack of its route, if any; not owned

    bool isResolved() const noexcept { return unresolved.family() == Lumo::IpFamily::none; }

    /// `known` is null when the neighbour has to be resolved.
    void sendTo(const Lumo::IpGenAddr& address, const Lumo::EthAddr* known,
                Solicits::By by = Solicits::By::route) noexcept {
        neighbour = address;
        namedBy = by;
        mac = known != nullptr ? *known : Lumo::EthAddr{};
        unresolved = known != nullptr ? Lumo::IpGenAddr() : address;
    }
};

} // namespace OvixAgent
