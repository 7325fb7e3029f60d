#pragma once

#include <cstring>

#include "IpLookupTesting.h"
#include "Mpls/LfibLayout.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Tessel/Exceptions.h"
#include "Tessel/Fib/FecId.h"

/// What the plugin answers about labels, and what their frames meet.
namespace LabelDecisionsTesting {

using namespace Ovix;
using namespace TestSupport;
using Lumo::MplsLabelAction;
using Texts = std::vector<std::string>;
using Vias = std::vector<Mpls::WeightedRecord>;

constexpr std::array allBeneath{Beneath::label, Beneath::ipv4, Beneath::ipv6, Beneath::ethernet};
inline const std::string missed = "No via set in lfib %s for %s";
inline const std::string nothingFound = "No labels resolved to via sets, and nexthop not resolved";

/// A handler of the made-up via type that declares what its outcome depends on.
class DeclaredHandler : public ScriptedHandler {
  public:
    DeclaredHandler(DecidedBy by, Script script) : ScriptedHandler(std::move(script)), by_(by) {}
    DecidedBy decidedBy(const MplsContext&) const override { return by_; }

  private:
    DecidedBy by_;
};

class LabelDecisions : public MadeUpViasFixture {
  protected:
    bool decide(std::uint32_t label, Beneath beneath = Beneath::ipv4) {
        return plugin->mplsRoutingHandler()->decide(Lumo::MplsLabel(label), beneath, decision);
    }
    const LabelDecision::Choice& choice() const { return decision.choices.front(); }

    static OvixMplsVia viaOf(MplsLabelAction action, std::uint32_t label = 300) {
        OvixMplsVia via = swapVia(label);
        via.labelAction = static_cast<std::uint32_t>(action);
        return via;
    }
    static OvixMplsVia popOf(PayloadType payload) {
        OvixMplsVia via = viaOf(MplsLabelAction::pop);
        via.labels = std::string_view();
        via.payloadType = static_cast<std::uint32_t>(payload);
        return via;
    }
    void route(Table table, const Vias& vias, LfibViaType type = LfibViaType::ip,
               Mpls::LfibViaSetType setType = Mpls::LfibViaSetType::unicast) {
        writers[table]->routeIs(key(100), type, setType, vias);
    }
    Ptr<DeclaredHandler> declaredHandlerIs(DecidedBy by, ScriptedHandler::Script script) {
        auto handler = Tessel::make<DeclaredHandler>(by, std::move(script));
        plugin->mplsViaTypeHandlerRegistry()->doRegisterMplsViaTypeHandler(handler);
        return handler;
    }
    void viaKeyCountIs(std::uint16_t count) {
        auto* words = reinterpret_cast<std::byte*>(writers[decap]->viaSetWords(key(100)) + 1);
        std::memcpy(words + offsetof(Mpls::LfibLayout::ViaSetWord, viaKeys), &count, sizeof count);
        writers[decap]->reseal(key(100));
    }

    static Texts reasons(const LabelDecision::Events& events) {
        Texts all;
        for (const OvixNamedCounters::Counter* event : events) {
            all.push_back(event->reason);
        }
        return all;
    }
    static Texts rewrites(const RoutingNexthop& nexthop) {
        Texts all;
        for (const Ptr<RewriteInfo>& info : nexthop.rewriteInfos().rewrites()) {
            all.emplace_back(info->typeName().text());
        }
        return all;
    }
    static std::uint32_t labelSwappedIn(const LabelDecision::Choice& choice) {
        const auto info =
            Tessel::ptrCast<MplsSwapRewriteInfo>(choice.nexthop->rewriteInfos().rewrites().front());
        return info->labels.operation().label(0).value();
    }
    static void expectSame(const RoutingNexthop& made, const RoutingNexthop& decided) {
        EXPECT_EQ(made.intfId(), decided.intfId());
        EXPECT_EQ(made.vrfName().view(), decided.vrfName().view());
        EXPECT_EQ(made.mtu(), decided.mtu());
        EXPECT_EQ(made.vlanId(), decided.vlanId());
        EXPECT_EQ(rewrites(made), rewrites(decided));
        EXPECT_EQ(made.rewriteInfos().finalCounterActions().size(),
                  decided.rewriteInfos().finalCounterActions().size());
    }
    /// Routes a frame of label 100 over the payload, and finds what was decided for it.
    void expectDecided(Beneath beneath, const Bytes& payload) {
        ASSERT_TRUE(decide(100, beneath));
        ASSERT_EQ(decision.choices.size(), 1U);
        Texts events = reasons(decision.lookup);
        for (const std::string& event : reasons(choice().events)) {
            events.push_back(event);
        }
        counters = Tessel::make<OvixNamedCounters>();
        counters->forgetLast();
        const auto output = routeFrame(mplsFrame({{100}}, payload));
        EXPECT_EQ(events, reasons({counters->ofFrame().begin(), counters->ofFrame().end()}));
        ASSERT_EQ(output->nexthops()->size(), choice().nexthop ? 1U : 0U);
        if (choice().nexthop) {
            expectSame(*output->nexthops()->nexthopFront(), *choice().nexthop);
        }
    }

    LabelDecision decision;
};

} // namespace LabelDecisionsTesting
