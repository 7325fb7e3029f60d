#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include "Live/links/LinkMonitor.h"
#include "Live/ports/InterfaceControl.h"
#include "Live/ports/LivePorts.h"
#include "State/EthIntfStatusDir.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// Keeps the ports, the interface status for plugins and the neighbours in sync with the kernel,
/// and makes the kernel resolve the neighbours that frames need. A VLAN sub-interface is up while
/// its parent is; when the kernel has a VLAN device of its name, that one gives its MAC, MTU and
/// neighbours, and has to be up, too. The interface of a port is found by its name, and then
/// followed by its index, whatever it is renamed to, until it is removed.
class LinkSync {
  public:
    using Clock = std::chrono::steady_clock;

    /// Everything must outlive it. Throws std::system_error.
    LinkSync(const AgentConfig& config, ForwardingTables& forwarding,
             Ptr<Interface::EthIntfStatusDir> interfaces, LivePorts& ports);

    /// To be polled for input of `receive`.
    int descriptor() const noexcept { return monitor_.descriptor(); }
    void receive() {
        const ForwardingGate::Closed closed(forwarding_->gate);
        monitor_.receive();
    }
    /// Whether the kernel has reported everything once.
    bool isComplete() const noexcept { return monitor_.isComplete(); }

    /// Looks for links that have gone down, once in `lookEvery()` at most. The kernel reports one
    /// only after it has waited for everybody who may still be sending there, which takes tens of
    /// milliseconds on a busy machine; its flags say so before. Returns whether one has, or another
    /// thread has noticed one.
    bool checkCarriers(Clock::time_point now);
    /// For another thread that forwards, inside the gate: looks as often, and says whether a link
    /// has gone down that is taken to be up, for the next `checkCarriers` to take it over.
    std::function<bool()> watch();
    /// A look takes a fraction of a microsecond for each port.
    std::chrono::microseconds lookEvery() const noexcept;

    /// Solicits the neighbours that frames need.
    void solicit();
    PortDown downBecause(PortIndex port) const noexcept;
    /// Takes the status of the ports from the configuration, whose ports must be the same.
    void configure(const AgentConfig& config);

  private:
    struct OfPort {
        std::uint32_t link = 0; ///< index of the interface; 0: none
        PortIndex parent = noPort;
        Lumo::EthAddr mac{};     ///< configured; zeros: the interface's own
        std::uint32_t mtu = 0;   ///< configured; 0: the interface's own
        bool isEnabled = true;   ///< by the configuration
        bool isLinkUp = false;   ///< by the kernel
        bool isParentUp = true;  ///< by the kernel, of a sub-interface
        bool isDisabled = false; ///< of its own interface, by the kernel
    };

    LinkEvents events();
    void linkIs(const LinkState& link);
    void takeOver(PortIndex port, const LinkState& link);
    void macIs(PortIndex port, const Lumo::EthAddr& mac);
    Lumo::EthAddr macOf(const OfPort& own, const LinkState& link);
    static std::uint32_t mtuOf(const OfPort& own, const LinkState& link) noexcept;
    void takeOverFromParent(PortIndex port, const LinkState& link);
    void linkDel(const LinkState& link);
    bool isOf(PortIndex port, const LinkState& link) const;
    void findAnother(PortIndex port);
    void neighbourIs(const NeighbourState& neighbour);
    void neighbourDel(const NeighbourState& neighbour);
    std::optional<PortIndex> portOf(std::uint32_t link) const;
    void upIs(PortIndex port, bool up);
    /// The link of a port that is taken to be up, and is not; null when there is none.
    const LinkState* fallen(const OfPort& port) const;

    ForwardingTables* forwarding_;
    Ptr<Interface::EthIntfStatusDir> interfaces_;
    LivePorts* ports_;
    std::vector<OfPort> ofPort_;
    LinkMonitor monitor_;
    InterfaceFlags flags_;
    Clock::time_point checkedAt_;
    std::atomic<bool> isNoticed_{false}; ///< by another thread
};

} // namespace OvixAgent
