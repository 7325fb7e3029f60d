#include "Live/ports/LivePorts.h"

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Live/ports/CardPort.h"
#include "Live/ports/InterfaceClaim.h"
#include "Live/ports/InterfaceControl.h"
#include "Live/ports/PacketPort.h"
#include "Live/ports/XdpPort.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

/// The port would wait until the other agent ends.
void requireFree(const std::string& interface) {
    if (isInterface(interface)) {
        try {
            const InterfaceClaim attempt(indexOfInterface(interface));
        } catch (const std::system_error& taken) {
            throw std::runtime_error(interface + ": " + taken.what());
        }
    }
}

std::unique_ptr<LivePort> openCard(const AgentConfig& config, PortIndex index, const Port& port) {
    CardOptions options{config.ports[index].device, config.eal, 0,
                        config.ports[index].mac,    0,          config.workers};
    if (config.ports[index].ownMtu) {
        options.mtu = config.ports[index].mtu;
    }
    for (const PortConfig& each : config.ports) {
        options.cards += each.kind == PortKind::dpdk ? 1 : 0;
    }
    try {
        return std::make_unique<CardPort>(index, port, openDpdkCard(options), config.workers);
    } catch (const CardError& refused) {
        throw CardError(fmt::format("port {}: {}", port.name, refused.what()));
    }
}

/// Nobody would receive the flows of a worker without a queue.
void requireQueues(const std::string& interface, unsigned int workers) {
    if (workers == 0 || !isInterface(interface)) {
        return;
    }
    if (const std::uint32_t queues = receiveQueuesOfInterface(interface); queues < workers) {
        throw CardError(fmt::format("workers: port {} has {} receive queues for {} workers: make "
                                    "more of them (ethtool -L {} combined {}), or give fewer "
                                    "workers",
                                    interface, queues, workers, interface, workers));
    }
}

std::unique_ptr<LivePort> open(const AgentConfig& all, PortIndex index, const PortTable& table) {
    const PortConfig& config = all.ports[index];
    if (config.kind == PortKind::tap) { // of which the kernel lets nobody have a second
        return std::make_unique<TapPort>(index, config.name, std::nullopt, all.workers);
    }
    requireFree(config.name);
    if (config.kind == PortKind::dpdk) {
        return openCard(all, index, table.ports()[index]);
    }
    if (config.kind == PortKind::xdp) {
        requireQueues(config.name, all.workers);
        return std::make_unique<XdpPort>(index, config.name, all.workers);
    }
    return std::make_unique<PacketPort>(index, config.name, PacketIntake::labelledAndIp,
                                        all.workers);
}

bool isLabelled(Wire::Bytes frame) noexcept {
    return Wire::EtherType::isMpls(Wire::behindTags(frame).etherType());
}

/// Sends labelled punted frames to a TAP device, if there is one, and IP packets of cards to this
/// host, which has received those of its own interfaces itself, and of cards those to groups.
class CpuPort : public TransmitPort {
  public:
    /// By the index of a frame's port; null where it is no card's.
    using Cards = std::vector<CardPort*>;

    CpuPort(TapPort* tap, const Cards& cards) : tap_(tap), cards_(&cards) {}
    void transmit(const Frame& frame) override {
        if (isLabelled(frame.bytes)) {
            if (tap_ != nullptr) {
                tap_->transmit(frame);
            }
        } else if (CardPort* const card = (*cards_)[frame.port]; card != nullptr) {
            const Wire::Ethernet ethernet(frame.bytes);
            if (ethernet && !ethernet.isToGroup()) {
                card->toHost(frame);
            }
        }
    }

  private:
    TapPort* tap_;
    const Cards* cards_;
};

} // namespace

LivePorts::LivePorts(const AgentConfig& config, PortTable& table)
    : cpuTap_(config.cpuTap.empty() ? nullptr : std::make_unique<TapPort>(0, config.cpuTap)),
      cpu_(std::make_unique<CpuPort>(cpuTap_.get(), cards_)), byIndex_(config.ports.size()),
      cards_(config.ports.size()), queues_(config.workers), table_(&table) {
    for (PortIndex i = 0; i < config.ports.size(); ++i) {
        if (!config.ports[i].isSubInterface()) {
            ports_.push_back(open(config, i, table));
            byIndex_[i] = ports_.back().get();
        }
    }
    for (PortIndex i = 0; i < config.ports.size(); ++i) {
        if (config.ports[i].isSubInterface()) {
            byIndex_[i] = byIndex_[config.ports[i].parent];
        }
        cards_[i] = dynamic_cast<CardPort*>(byIndex_[i]);
        isPolled_ = isPolled_ || byIndex_[i]->isPolled();
        table.ports()[i].out = byIndex_[i];
        table.ports()[i].isUp = false; // until the kernel reports the link
    }
}

std::vector<std::unique_ptr<LivePort>> LivePorts::takeQueues(std::size_t thread) {
    std::vector<std::unique_ptr<LivePort>> taken;
    for (const auto& port : ports_) {
        taken.push_back(port->queue(static_cast<std::uint32_t>(thread)));
        if (!taken.back()) {
            throw CardError(fmt::format("workers: port {} has no queues for them", port->name()));
        }
        ofThreads_.resize(std::max(ofThreads_.size(), thread + 1));
        ofThreads_[thread].push_back(taken.back().get());
    }
    return taken;
}

std::vector<LivePort*> LivePorts::queuesOf(PortIndex index) const {
    const std::size_t number = numberOf(index);
    std::vector<LivePort*> all;
    for (const std::vector<LivePort*>& ofThread : ofThreads_) {
        all.push_back(ofThread[number]);
    }
    return all;
}

std::uint64_t LivePorts::count(PortIndex index, LiveEvent event) const {
    std::uint64_t sum = port(index).counts().of(event);
    for (LivePort* const queue : queuesOf(index)) {
        sum += queue->counts().of(event);
    }
    return sum;
}

std::uint64_t LivePorts::receivedBytes(PortIndex index) const {
    std::uint64_t sum = port(index).counts().receivedBytes();
    for (LivePort* const queue : queuesOf(index)) {
        sum += queue->counts().receivedBytes();
    }
    return sum;
}

std::size_t LivePorts::numberOf(PortIndex index) const {
    const auto found = std::find_if(ports_.begin(), ports_.end(), [&](const auto& port) {
        return port.get() == byIndex_[index];
    });
    return static_cast<std::size_t>(found - ports_.begin());
}

void LivePorts::intakesAre(const Pseudowires& pseudowires, PortTable& table) {
    std::vector<PacketIntake> intakes(byIndex_.size(), PacketIntake::labelledAndIp);
    for (PortIndex i = 0; i < byIndex_.size(); ++i) {
        const PortIndex base = table.parentOf(i);
        const bool hasOwnMac = table.ports()[i].mac != table.ports()[base].mac;
        const PacketIntake ofStation =
            hasOwnMac ? PacketIntake::toVlans : PacketIntake::labelledAndIp;
        const PacketIntake asked = !pseudowires.isCircuit(i) ? ofStation
                                   : base == i               ? PacketIntake::everything
                                                             : PacketIntake::taggedToAny;
        intakes[base] = std::max(intakes[base], asked);
    }
    for (PortIndex i = 0; i < byIndex_.size(); ++i) {
        const PacketIntake intake = intakes[table.parentOf(i)];
        // What is for other stations a card receives, too; of an interface the kernel leaves it
        // out.
        table.anyMacIs(i, intake < PacketIntake::toVlans && cards_[i] == nullptr);
        if (table.parentOf(i) == i) {
            byIndex_[i]->intakeIs(intake);
        }
    }
}

void LivePorts::flush() {
    for (const auto& port : ports_) {
        port->flush();
    }
}

void LivePorts::requireUsable() const {
    std::vector<std::string> refused;
    for (const auto& port : ports_) {
        if (port->isOpen()) {
            return;
        }
        const bool makesDevice = dynamic_cast<const TapPort*>(port.get()) != nullptr ||
                                 dynamic_cast<const CardPort*>(port.get()) != nullptr;
        if (makesDevice || isInterface(port->name())) {
            refused.push_back(port->problem());
        }
    }
    if (!refused.empty()) {
        throw std::runtime_error(fmt::format("no port can be used: {}", fmt::join(refused, "; ")));
    }
}

std::vector<std::string> LivePorts::problems() const {
    std::vector<std::string> all;
    for (const auto& port : ports_) {
        if (!port->isOpen()) {
            all.push_back(port->problem());
        }
    }
    for (const std::vector<LivePort*>& ofThread : ofThreads_) {
        for (std::size_t i = 0; i < ofThread.size(); ++i) {
            if (ports_[i]->isOpen() && !ofThread[i]->problem().empty()) {
                all.push_back(ofThread[i]->problem());
            }
        }
    }
    if (cpuTap_ && !cpuTap_->isOpen()) {
        all.push_back(cpuTap_->problem());
    }
    return all;
}

std::vector<std::string> LivePorts::news() {
    std::vector<std::string> all = std::exchange(told_, {});
    const auto report = [&](std::string& reported, const LivePort& port) {
        if (reported != port.problem()) {
            reported = port.problem();
            all.push_back(reported.empty()           ? port.name() + ": open"
                          : isInterface(port.name()) ? reported
                                                     : reported + "; waiting for the interface");
        }
    };
    reported_.resize(ports_.size() + 1);
    warned_.resize(ports_.size());
    for (std::size_t i = 0; i < ports_.size(); ++i) {
        report(reported_[i], *ports_[i]);
        if (warned_[i] != ports_[i]->warning()) {
            warned_[i] = ports_[i]->warning();
            all.push_back(warned_[i].empty() ? ports_[i]->name() + ": the kernel is kept away"
                                             : warned_[i]);
        }
    }
    if (cpuTap_) {
        report(reported_.back(), *cpuTap_);
    }
    return all;
}

void LivePorts::reopen() {
    InterfaceClaim::dismissAskers();
    for (const auto& port : ports_) {
        if (!port->isOpen()) {
            port->reopen();
        }
    }
    if (cpuTap_) {
        cpuTap_->reopen();
    }
}

std::vector<std::pair<std::string, std::uint64_t>> LivePorts::events() const {
    constexpr auto firstTrouble = static_cast<std::size_t>(LiveEvent::ringFull);
    std::vector<std::pair<std::string, std::uint64_t>> all;
    for (PortIndex i = 0; i < byIndex_.size(); ++i) {
        const bool isParent = table_->parentOf(i) == i;
        for (std::size_t j = firstTrouble; isParent && j < liveEventNames.size(); ++j) {
            const std::uint64_t times = count(i, static_cast<LiveEvent>(j));
            if (times > 0) {
                all.emplace_back(fmt::format("{}: {}", byIndex_[i]->name(), liveEventNames[j]),
                                 times);
            }
        }
    }
    return all;
}

} // namespace OvixAgent
