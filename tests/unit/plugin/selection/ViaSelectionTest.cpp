#include <functional>

#include "PluginFixture.h"

namespace ViaSelectionTest {

namespace {

using namespace Ovix;
using TestSupport::mplsFrame;
using TestSupport::PluginFixture;
using TestSupport::udpPacket;

/// A via set made up for the test.
class MadeUpViaSet : public OvixMplsViaSet {
  public:
    std::uint32_t numVias() const noexcept override {
        return static_cast<std::uint32_t>(weights.size());
    }
    Mpls::LfibViaType viaType(std::uint32_t) const noexcept override { return viaTypeOfAll; }
    std::uint32_t weight(std::uint32_t index) const noexcept override { return weights[index]; }
    OvixMplsVia via(std::uint32_t) const override { return {}; }
    Mpls::LfibViaSetType type() const noexcept override { return setType; }

    std::vector<std::uint32_t> weights{1};
    Mpls::LfibViaType viaTypeOfAll{77};
    Mpls::LfibViaSetType setType = Mpls::LfibViaSetType::unicast;
};

/// A handler that gives set answers, by via index.
class TellingHandler : public MplsViaTypeHandler {
  public:
    explicit TellingHandler(std::vector<ProcessingResult> results)
        : MplsViaTypeHandler(Mpls::LfibViaType{77}), results_(std::move(results)) {}
    ProcessingResult processMplsVia(const Ptr<MplsContext>& context) override {
        seen.push_back(*context->viaIndex());
        return results_[*context->viaIndex()];
    }
    std::vector<std::uint32_t> seen;

  private:
    std::vector<ProcessingResult> results_;
};

/// A hasher that gives set answers.
class TellingHasher : public PacketHasherOfType {
  public:
    std::uint32_t hash(const PacketHeader&) const override { return value; }
    std::uint32_t value = 0;
};

class ViaSelection : public PluginFixture {
  protected:
    ~ViaSelection() override {
        registry()->doRegisterMplsViaTypeHandler(
            Tessel::make<TellingHandler>(std::vector<ProcessingResult>(16, frameDealtWith)));
    }
    Ptr<MplsViaTypeHandlerRegistry> registry() { return plugin->mplsViaTypeHandlerRegistry(); }
    Ptr<MplsContext> contextFor(const Ptr<MadeUpViaSet>& set, bool entropy = true) {
        std::vector<TestSupport::Entry> stack{{100}};
        if (entropy) {
            stack.push_back({7});
            stack.push_back({5000, 0});
        }
        auto context = contextOf(mplsFrame(stack, udpPacket(0x0a090001)));
        context->packetContext()->parsedPkt().maybeDoFullParse();
        nexthops = Tessel::make<RoutingNexthops>();
        nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
        return Tessel::make<MplsContext>(
            context, Lumo::MplsLabelEntry(Lumo::MplsLabel(100), 0, true, 64), nullptr, set, nullptr,
            Lumo::MplsStackEntryIndex(0), nexthops);
    }
    Ptr<TellingHandler> handlerOf(std::vector<ProcessingResult> results) {
        auto handler = Tessel::make<TellingHandler>(std::move(results));
        registry()->doRegisterMplsViaTypeHandler(handler);
        return handler;
    }
    Ptr<TellingHasher> tellingHasher() {
        auto hasher = Tessel::make<TellingHasher>();
        manager->packetHashers()->hasherIs(PktHdrType::mpls, hasher);
        return hasher;
    }
    Ptr<RoutingNexthops> nexthops;
};

TEST_F(ViaSelection, ResiduesBelongToViasByWeightInOrder) {
    const auto hasher = tellingHasher();
    const auto set = Tessel::make<MadeUpViaSet>();
    set->weights = {1, 3};
    for (const auto& [hash, expected] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{
             {0, 0}, {1, 1}, {2, 1}, {3, 1}, {4, 0}, {0xffffffff, 1}}) {
        hasher->value = hash;
        EXPECT_EQ(plugin->pickUcmpVia(contextFor(set), set), expected) << hash;
    }
    hasher->value = 7;
    plugin->pickUcmpVia(contextFor(set), set);
    EXPECT_TRUE(traced(" pktHash/totalWeight is 3 / 4"));
}

TEST_F(ViaSelection, AViaOfWeight0IsNeverChosen) {
    const auto hasher = tellingHasher();
    const auto set = Tessel::make<MadeUpViaSet>();
    set->weights = {0, 5};
    for (hasher->value = 0; hasher->value < 20; ++hasher->value) {
        EXPECT_EQ(plugin->pickUcmpVia(contextFor(set), set), 1U);
    }
}

TEST_F(ViaSelection, TheSumOfTheWeightsWraps) {
    const auto hasher = tellingHasher();
    const auto set = Tessel::make<MadeUpViaSet>();
    set->weights = {0xffffffff, 6}; // adds up to 5
    hasher->value = 9;
    EXPECT_EQ(plugin->pickUcmpVia(contextFor(set), set), 0U);
    EXPECT_TRUE(traced(" pktHash/totalWeight is 4 / 5"));
}

TEST_F(ViaSelection, WeightsHaveThirtyTwoBits) {
    const auto hasher = tellingHasher();
    const auto set = Tessel::make<MadeUpViaSet>();
    set->weights = {65536, 131072};
    for (const auto& [hash, expected] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{
             {0, 0}, {65535, 0}, {65536, 1}, {196607, 1}, {196608, 0}}) {
        hasher->value = hash;
        EXPECT_EQ(plugin->pickUcmpVia(contextFor(set), set), expected) << hash;
    }
}

TEST_F(ViaSelection, WeightsThatAddUpTo0AreABrokenPromise) {
    const auto set = Tessel::make<MadeUpViaSet>();
    for (const std::vector<std::uint32_t>& weights :
         {std::vector<std::uint32_t>{0, 0}, std::vector<std::uint32_t>{0x80000000, 0x80000000}}) {
        set->weights = weights;
        const auto context = contextFor(set);
        EXPECT_DEATH(plugin->pickUcmpVia(context, set), "totalWeight > 0");
    }
}

TEST_F(ViaSelection, WithoutAnEntropyLabelThePacketsHashDecides) {
    const auto hasher = tellingHasher();
    hasher->value = 12345;
    const auto set = Tessel::make<MadeUpViaSet>();
    set->weights = {1000, 1000, 1000};
    const auto context = contextFor(set, false);
    const std::uint64_t rest = context->pktCtx()->hash() % 3000;
    EXPECT_EQ(plugin->pickUcmpVia(context, set), rest / 1000);
}

TEST_F(ViaSelection, ASingleViaIsTakenWithoutHashing) {
    const auto handler = handlerOf({1});
    manager->packetHashers()->hasherIs(PktHdrType::mpls, nullptr); // would crash if asked
    const auto set = Tessel::make<MadeUpViaSet>();
    set->weights = {0};
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(handler->seen, std::vector<std::uint32_t>{0});
}

TEST_F(ViaSelection, AnEmptySetIsADrop) {
    const auto set = Tessel::make<MadeUpViaSet>();
    set->weights = {};
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(counted("Drop", "No vias"), 1U);
    EXPECT_TRUE(traced("No vias"));
    EXPECT_TRUE(traced("ViaSet type: unicast, via count: 0"));
}

TEST_F(ViaSelection, PickingFromAnEmptySetIsABrokenPromise) {
    const auto set = Tessel::make<MadeUpViaSet>();
    set->weights = {};
    const auto context = contextFor(set);
    EXPECT_DEATH(plugin->pickUcmpVia(context, set),
                 "MplsVorn/OvixPlugin/MplsOvixPlugin.*viaSet->numVias\\(\\)");
}

TEST_F(ViaSelection, OfOneViaThatOneIsPicked) {
    const auto set = Tessel::make<MadeUpViaSet>();
    EXPECT_EQ(plugin->pickUcmpVia(contextFor(set), set), 0U);
}

TEST_F(ViaSelection, AViaBehindTheLastIsABrokenPromise) {
    const auto context = contextFor(Tessel::make<MadeUpViaSet>());
    EXPECT_DEATH(plugin->handleVia(context, 1), "Assertion.*viaIndex < ");
}

TEST_F(ViaSelection, AViaTypeWithoutAHandlerIsExceptional) {
    const auto set = Tessel::make<MadeUpViaSet>();
    set->viaTypeOfAll = Mpls::LfibViaType{88};
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(counted("Exceptional", "Via type %s handler not found"), 1U);
    EXPECT_TRUE(traced("Via type 88 handler not found"));
}

TEST_F(ViaSelection, TheHandlersResultIsPassedOn) {
    handlerOf({0});
    EXPECT_EQ(plugin->handleViaSet(contextFor(Tessel::make<MadeUpViaSet>())), 0);
}

struct MulticastCase {
    std::vector<ProcessingResult> results;
    ProcessingResult expected;
    std::uint64_t reports;
};

TEST_F(ViaSelection, EveryViaOfAMulticastSetIsHandledAndDisagreementReported) {
    for (const MulticastCase& one :
         {MulticastCase{{0, 0, 2}, 1, 1}, MulticastCase{{0, 2, 2}, 1, 2},
          MulticastCase{{2, 2, 2}, 2, 0}, MulticastCase{{255, 255, 255}, 1, 0},
          MulticastCase{{0, 1, 1}, 1, 1}}) {
        counters = Tessel::make<OvixNamedCounters>();
        const auto handler = handlerOf(one.results);
        const auto set = Tessel::make<MadeUpViaSet>();
        set->weights = {1, 1, 1};
        set->setType = Mpls::LfibViaSetType::multicast;
        EXPECT_EQ(plugin->handleViaSet(contextFor(set)), one.expected);
        EXPECT_EQ(handler->seen, (std::vector<std::uint32_t>{0, 1, 2}));
        EXPECT_EQ(counted("Exceptional",
                          "Handler for multicast via %s returned inconsistent processing result"),
                  one.reports);
    }
    EXPECT_TRUE(traced("Handler for multicast via 2 returned inconsistent processing result"));
}

TEST_F(ViaSelection, ALabelThatIsNotSettledPassesTheFrameToTheNext) {
    const auto handler = handlerOf({0});
    const auto context = contextOf(mplsFrame({{100}, {200}}, udpPacket(0x0a090001)));
    const auto stack = Tessel::make<OvixMplsViaSetStack>();
    for (std::uint32_t i = 0; i < 3; ++i) {
        stack->addViaSetForLabel(Lumo::MplsStackEntryIndex(i),
                                 Lumo::MplsLabelEntry(Lumo::MplsLabel(100 + i), 0, false, 64),
                                 Tessel::make<MadeUpViaSet>());
    }
    nexthops = Tessel::make<RoutingNexthops>();
    nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
    plugin->processViaSetStack(context, nexthops, nullptr, stack);
    EXPECT_EQ(handler->seen.size(), 3U);
    const auto settling = handlerOf({1});
    plugin->processViaSetStack(context, nexthops, nullptr, stack);
    EXPECT_EQ(settling->seen.size(), 1U);
}

} // namespace

} // namespace ViaSelectionTest
