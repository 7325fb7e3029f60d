#pragma once

#include "Ovix/routing/Handlers.h"
#include "Ovix/viaset/MplsContext.h"
#include "Ovix/viaset/MplsViaTypeHandler.h"

namespace Ovix {

class MplsOvixPlugin;

/// The door through which every MPLS frame enters the plugin: registered as "Mpls". It counts
/// "Drop" / "Mpls routing not enabled" while MPLS routing is off.
class MplsRoutingHandler : public RoutingHandler {
  public:
    /// The plugin owns the handler and outlives it.
    explicit MplsRoutingHandler(MplsOvixPlugin* plugin) : RoutingHandler("Mpls"), plugin_(plugin) {}

    MplsOvixPlugin* plugin() const noexcept { return plugin_; }

    void processPacket(const Ptr<RoutingOutput>& output, const Ptr<RoutingContext>& context,
                       const Ptr<PacketHeader>& header,
                       const Ptr<RoutingVrfRoot>& vrfRoot) override;

    bool decide(Lumo::MplsLabel label, Beneath beneath, LabelDecision& decision) override;
    std::uint64_t decisionVersion() const noexcept override;

  private:
    bool choose(const Ptr<RoutingContext>& model, Lumo::MplsLabelEntry entry,
                const Ptr<OvixMplsViaSet>& viaSet, LabelDecision& decision);
    const Ptr<MplsViaTypeHandler>& handlerOf(const OvixMplsViaSet& viaSet,
                                             std::uint32_t index) const;
    bool allDecide(const Ptr<MplsContext>& context) const;
    bool replicate(const Ptr<MplsContext>& context, LabelDecision& decision);
    bool chooseVia(const Ptr<MplsContext>& context, std::uint32_t index,
                   LabelDecision::Choice& choice);

    MplsOvixPlugin* plugin_;
    /// What is counted for model frames, which are never sent.
    Ptr<OvixNamedCounters> modelEvents_ = Tessel::make<OvixNamedCounters>();
};

} // namespace Ovix
