#include "MadeUpVias.h"

namespace ViaOfASetTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

/// A set whose vias differ in type.
class MixedViaSet : public MadeUpViaSet {
  public:
    explicit MixedViaSet(std::vector<Mpls::LfibViaType> typesOfVias,
                         Mpls::LfibViaSetType setType = Mpls::LfibViaSetType::unicast)
        : MadeUpViaSet(std::vector<std::uint32_t>(typesOfVias.size(), 1), setType),
          types(std::move(typesOfVias)) {}
    Mpls::LfibViaType viaType(std::uint32_t index) const noexcept override { return types[index]; }

    std::vector<Mpls::LfibViaType> types;
};

/// A hasher that remembers what it was given.
class RememberingHasher : public PacketHasherOfType {
  public:
    std::uint32_t hash(const PacketHeader& header) const override {
        given.push_back(&header);
        return 1;
    }
    mutable std::vector<const PacketHeader*> given;
};

constexpr Mpls::LfibViaType unknown{88};

class ViaOfASet : public MadeUpViasFixture {
  protected:
    Ptr<MplsContext> contextFor(const Ptr<OvixMplsViaSet>& set) {
        const auto frame = contextOf(mplsFrame({{100}, {7}, {5000, 0}}, udpPacket(0x0a090001)));
        frame->packetContext()->parsedPkt().maybeDoFullParse();
        trace.clear();
        return Tessel::make<MplsContext>(frame, entryOf(100), nullptr, set, nullptr,
                                         Lumo::MplsStackEntryIndex(0), oneNexthop());
    }
};

TEST_F(ViaOfASet, TheHandlerIsThatOfTheViasOwnType) {
    const auto set = Tessel::make<MixedViaSet>(
        std::vector<Mpls::LfibViaType>{unknown, madeUpViaType, Mpls::LfibViaType{89}});
    const auto handler = handlerAnswers({2, 3});
    EXPECT_EQ(plugin->handleVia(contextFor(set), 1), 2);
    EXPECT_EQ(handler->seen.size(), 1U);
    EXPECT_TRUE(trace.empty());
    EXPECT_EQ(plugin->handleVia(contextFor(set), 0), 1);
    EXPECT_EQ(trace, lines({"Via type 88 handler not found"}));
    EXPECT_EQ(plugin->handleVia(contextFor(set), 2), 1);
    EXPECT_EQ(trace, lines({"Via type 89 handler not found"}));
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "Via type %s handler not found", 2)}));
}

TEST_F(ViaOfASet, TheContextIsHandedOnWithItsViaIndex) {
    const auto set = Tessel::make<MixedViaSet>(
        std::vector<Mpls::LfibViaType>{madeUpViaType, madeUpViaType, madeUpViaType});
    std::vector<std::optional<std::uint32_t>> indices;
    const auto handler = handlerIs([&](const Ptr<MplsContext>& context) {
        indices.push_back(context->viaIndex());
        return ProcessingResult{1};
    });
    const auto context = contextFor(set);
    plugin->handleVia(context, 2);
    plugin->handleVia(context, 0);
    EXPECT_EQ(indices, (std::vector<std::optional<std::uint32_t>>{2, 0}));
    EXPECT_EQ(handler->seen, (std::vector<Ptr<MplsContext>>{context, context}));
}

TEST_F(ViaOfASet, AMulticastViaWithoutAHandlerCountsAsOneThatDealtWithTheFrame) {
    const std::vector<Mpls::LfibViaType> types{unknown, madeUpViaType};
    const auto set = Tessel::make<MixedViaSet>(types, Mpls::LfibViaSetType::multicast);
    handlerAnswers({1});
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "Via type %s handler not found")}));
    handlerAnswers({0});
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(timesTraced("Handler for multicast via 1 returned inconsistent processing result"),
              1U);
}

TEST_F(ViaOfASet, ThePlainResultsOfAHandlerArePassedOn) {
    const auto set = Tessel::make<MadeUpViaSet>();
    for (const ProcessingResult result :
         {ProcessingResult{0}, ProcessingResult{1}, ProcessingResult{2}, ProcessingResult{254}}) {
        handlerAnswers({result});
        EXPECT_EQ(plugin->handleViaSet(contextFor(set)), result);
    }
}

TEST_F(ViaOfASet, TheHasherOfTheStackIsGivenTheFirstMplsHeader) {
    const auto hasher = Tessel::make<RememberingHasher>();
    manager->packetHashers()->hasherIs(PktHdrType::mpls, hasher);
    const Ptr<OvixMplsViaSet> set = Tessel::make<MadeUpViaSet>(std::vector<std::uint32_t>{1, 1});
    const auto context = contextFor(set);
    EXPECT_EQ(plugin->pickUcmpVia(context, set), 1U);
    EXPECT_EQ(hasher->given,
              (std::vector<const PacketHeader*>{
                  context->pktCtx()->parsedPkt().firstHeaderOfType(PktHdrType::mpls).get()}));
}

TEST_F(ViaOfASet, TheHasherOfAnotherHeaderTypeIsNotAsked) {
    const auto hasher = Tessel::make<RememberingHasher>();
    for (const auto type : {PktHdrType::eth, PktHdrType::ipv4, PktHdrType::udp}) {
        manager->packetHashers()->hasherIs(type, hasher);
    }
    const auto ofStack = tellingHasher(0);
    const Ptr<OvixMplsViaSet> set = Tessel::make<MadeUpViaSet>(std::vector<std::uint32_t>{1, 1});
    plugin->pickUcmpVia(contextFor(set), set);
    EXPECT_TRUE(hasher->given.empty());
    EXPECT_EQ(ofStack->asked, 1U);
}

TEST_F(ViaOfASet, PickingCountsNothingAndLeavesTheContextAlone) {
    const Ptr<OvixMplsViaSet> set = Tessel::make<MadeUpViaSet>(std::vector<std::uint32_t>{1, 1});
    const auto context = contextFor(set);
    plugin->pickUcmpVia(context, set);
    EXPECT_FALSE(context->viaIndex());
    EXPECT_TRUE(counters->counters().empty());
    EXPECT_EQ(trace.size(), 1U);
}

} // namespace

} // namespace ViaOfASetTest
