#pragma once

#include <vector>

#include "FastPath/EgressLines.h"
#include "Ovix/plugin/PluginManager.h"
#include "Ovix/rewrite/MplsPushRewriteImpl.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// What is imposed on the frames of an attachment circuit, and where they leave.
struct CircuitTunnel {
    Pseudowire* pseudowire = nullptr; ///< null: its frames are for the forwarder
    Ptr<const Ovix::EthOverMplsRewriteInfo> imposed;
    std::uint32_t labelBytes = 0;
    std::uint32_t controlWordBytes = 0;
    std::uint32_t egress = 0; ///< number of a line
};

/// How the frames of attachment circuits go into their pseudowires.
class CircuitTunnels {
  public:
    /// Everything must outlive it.
    CircuitTunnels(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
                   EgressLines& lines);

    /// To be called when the configuration has changed.
    void restart();
    const CircuitTunnel& of(PortIndex circuit) const noexcept { return tunnels_[circuit]; }

  private:
    CircuitTunnel tunnelOf(PortIndex circuit);
    bool readRewrites(const Ovix::RewriteInfos& rewrites, CircuitTunnel& tunnel) const;

    Ptr<Ovix::RewriteInfoImplMap> rewriteMap_;
    ForwardingTables* tables_;
    EgressLines* lines_;
    std::vector<CircuitTunnel> tunnels_; ///< by port
};

} // namespace OvixAgent
