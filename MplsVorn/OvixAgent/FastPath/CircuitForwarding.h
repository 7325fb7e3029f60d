#pragma once

#include <optional>
#include <vector>

#include "FastPath/Departures.h"
#include "FastPath/EgressLines.h"
#include "FastPath/PacketWork.h"
#include "Ovix/plugin/PluginManager.h"
#include "Ovix/rewrite/MplsPushRewriteImpl.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// Sends the frames of attachment circuits into their pseudowires.
class CircuitForwarding {
  public:
    /// Everything must outlive it.
    CircuitForwarding(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
                      EgressLines& lines, Departures& departures);

    /// To be called when the configuration has changed.
    void restart();

    /// The packet is a whole frame that came in at an attachment circuit. False, and nothing is
    /// changed, when it is for the forwarder.
    bool forward(PacketWork work);

  private:
    /// What is imposed on the frames of a circuit, and where they leave.
    struct Tunnel {
        Pseudowire* pseudowire = nullptr; ///< null: its frames are for the forwarder
        Ptr<const Ovix::EthOverMplsRewriteInfo> imposed;
        std::uint32_t labelBytes = 0;
        std::uint32_t controlWordBytes = 0;
        std::uint32_t egress = 0; ///< number of a line
    };

    Tunnel tunnelOf(PortIndex circuit);
    bool readRewrites(const Ovix::RewriteInfos& rewrites, Tunnel& tunnel) const;

    Ptr<Ovix::RewriteInfoImplMap> rewriteMap_;
    ForwardingTables* tables_;
    EgressLines* lines_;
    Departures* departures_;
    std::vector<Tunnel> tunnels_; ///< by port
};

} // namespace OvixAgent
