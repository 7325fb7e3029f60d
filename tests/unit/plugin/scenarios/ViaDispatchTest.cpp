#include "MadeUpVias.h"

namespace ViaDispatchTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

using Weights = std::vector<std::uint32_t>;

/// Tells other weights from the second time on that they are asked for.
class ShrinkingViaSet : public MadeUpViaSet {
  public:
    using MadeUpViaSet::MadeUpViaSet;
    std::uint32_t weight(std::uint32_t index) const noexcept override {
        return asked_++ < weights.size() ? weights[index] : 0;
    }

  private:
    mutable std::size_t asked_ = 0;
};

class ViaDispatch : public MadeUpViasFixture {
  protected:
    /// `entropy`: the frame's label stack alone tells flows apart.
    Ptr<MplsContext> contextFor(const Ptr<OvixMplsViaSet>& set, bool counting = true,
                                bool entropy = true) {
        const Bytes payload = udpPacket(0x0a090001);
        const auto context =
            contextOf(mplsFrame(entropy ? std::vector<TestSupport::Entry>{{100}, {7}, {5000, 0}}
                                        : std::vector<TestSupport::Entry>{{100}},
                                payload),
                      counting);
        context->packetContext()->parsedPkt().maybeDoFullParse();
        trace.clear();
        return Tessel::make<MplsContext>(context, entryOf(100), nullptr, set, nullptr,
                                         Lumo::MplsStackEntryIndex(0), oneNexthop());
    }
    /// A handler that answers by via index and notes the order.
    void answers(std::vector<ProcessingResult> results) {
        order.clear();
        handlerIs([this, results](const Ptr<MplsContext>& context) {
            order.push_back(context->viaIndex().value());
            return results.at(order.back());
        });
    }
    static Ptr<MadeUpViaSet> multicastSet(std::size_t vias) {
        return Tessel::make<MadeUpViaSet>(Weights(vias, 1), Mpls::LfibViaSetType::multicast);
    }
    static constexpr const char* inconsistent =
        "Handler for multicast via %s returned inconsistent processing result";

    std::vector<std::uint32_t> order;
};

TEST_F(ViaDispatch, ResiduesBelongToTheViasInOrderOfIndex) {
    const auto hasher = tellingHasher();
    const auto set = Tessel::make<MadeUpViaSet>(Weights{3, 0, 2, 5, 0});
    const auto context = contextFor(set);
    const Weights owners{0, 0, 0, 2, 2, 3, 3, 3, 3, 3};
    for (std::uint32_t hash = 0; hash < 30; ++hash) {
        hasher->value = hash;
        EXPECT_EQ(plugin->pickUcmpVia(context, set), owners[hash % 10]) << hash;
    }
}

TEST_F(ViaDispatch, TheHighestHashesAndWeightsAreUnsigned) {
    const auto set = Tessel::make<MadeUpViaSet>(Weights{0xfffffffe, 1});
    for (const auto& [hash, via] : {std::pair{0xfffffffeU, 1U}, std::pair{0xfffffffdU, 0U},
                                    std::pair{0xffffffffU, 0U}, std::pair{0x80000000U, 0U}}) {
        tellingHasher(hash);
        EXPECT_EQ(plugin->pickUcmpVia(contextFor(set), set), via) << hash;
    }
}

TEST_F(ViaDispatch, WeightsThatShrinkMeanwhileFallBackToTheFirstVia) {
    tellingHasher(4);
    const Ptr<OvixMplsViaSet> set = Tessel::make<ShrinkingViaSet>(Weights{2, 3});
    EXPECT_EQ(plugin->pickUcmpVia(contextFor(set), set), 0U);
}

TEST_F(ViaDispatch, TheRemainderIsTracedAndNotTheHash) {
    tellingHasher(1000);
    const auto set = Tessel::make<MadeUpViaSet>(Weights{3, 4});
    plugin->pickUcmpVia(contextFor(set), set);
    EXPECT_EQ(trace, std::vector<std::string>{"Pkt 7:  pktHash/totalWeight is 6 / 7"});
}

TEST_F(ViaDispatch, OneOfSeveralUnicastViasIsHashedForOnceAndHandled) {
    const auto hasher = tellingHasher(2);
    answers({1, 1, 1});
    const auto set = Tessel::make<MadeUpViaSet>(Weights{1, 1, 1});
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(order, Weights{2});
    EXPECT_EQ(hasher->asked, 1U);
    EXPECT_EQ(trace, (std::vector<std::string>{"Pkt 7: ViaSet type: unicast, via count: 3",
                                               "Pkt 7:  pktHash/totalWeight is 2 / 3"}));
}

TEST_F(ViaDispatch, ASingleViaIsNotHashedFor) {
    const auto hasher = tellingHasher(0);
    answers({2});
    EXPECT_EQ(plugin->handleViaSet(contextFor(Tessel::make<MadeUpViaSet>())), 2);
    EXPECT_EQ(hasher->asked, 0U);
    EXPECT_EQ(trace, lines({"ViaSet type: unicast, via count: 1"}));
}

TEST_F(ViaDispatch, WithoutAnEntropyLabelTheHasherOfTheStackIsNotAsked) {
    const auto hasher = tellingHasher(0);
    const auto set = Tessel::make<MadeUpViaSet>(Weights{1, 1});
    plugin->pickUcmpVia(contextFor(set, true, false), set);
    EXPECT_EQ(hasher->asked, 0U);
}

TEST_F(ViaDispatch, WithoutAnMplsHeaderThePacketsHashDecides) {
    const auto hasher = tellingHasher(0);
    Bytes frame = mplsFrame({}, udpPacket(0x0a090001));
    frame[12] = 0x08;
    frame[13] = 0x00;
    const auto context = contextOf(frame);
    context->packetContext()->parsedPkt().maybeDoFullParse();
    const auto set = Tessel::make<MadeUpViaSet>(Weights{1000, 1000});
    const auto one = Tessel::make<MplsContext>(context, entryOf(100), nullptr, set, nullptr,
                                               Lumo::MplsStackEntryIndex(0), oneNexthop());
    EXPECT_EQ(plugin->pickUcmpVia(one, set), context->packetContext()->hash() % 2000 / 1000);
    EXPECT_EQ(hasher->asked, 0U);
}

TEST_F(ViaDispatch, AnySetTypeButMulticastIsUnicast) {
    answers({1, 1});
    tellingHasher(1);
    const auto set = Tessel::make<MadeUpViaSet>(Weights{1, 1}, Mpls::LfibViaSetType{2});
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(order, Weights{1});
}

TEST_F(ViaDispatch, AnEmptySetOfEitherTypeIsADrop) {
    for (const auto& [type, name] : {std::pair{Mpls::LfibViaSetType::unicast, "unicast"},
                                     std::pair{Mpls::LfibViaSetType::multicast, "multicast"}}) {
        counters = Tessel::make<OvixNamedCounters>();
        const auto set = Tessel::make<MadeUpViaSet>(Weights{}, type);
        EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
        EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", "No vias")}));
        EXPECT_EQ(trace,
                  lines({std::string("ViaSet type: ") + name + ", via count: 0", "No vias"}));
        EXPECT_EQ(plugin->handleViaSet(contextFor(set, false)), 1);
        EXPECT_TRUE(traced("No vias"));
        EXPECT_EQ(counted("Drop", "No vias"), 1U);
    }
}

TEST_F(ViaDispatch, TheViaIndexIsStoredBeforeTheHandlerIsSought) {
    const auto set = Tessel::make<MadeUpViaSet>(Weights{1, 1, 1});
    set->viaTypeOfAll = Mpls::LfibViaType{88};
    const auto context = contextFor(set);
    EXPECT_FALSE(context->viaIndex());
    EXPECT_EQ(plugin->handleVia(context, 2), 1);
    EXPECT_EQ(context->viaIndex(), std::optional<std::uint32_t>{2});
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "Via type %s handler not found")}));
    EXPECT_EQ(trace, lines({"Via type 88 handler not found"}));
    EXPECT_EQ(plugin->handleVia(contextFor(set, false), 0), 1);
    EXPECT_TRUE(traced("Via type 88 handler not found"));
    EXPECT_EQ(counted("Exceptional", "Via type %s handler not found"), 1U);
}

struct MulticastCase {
    std::vector<ProcessingResult> results;
    ProcessingResult expected;
    std::vector<std::uint32_t> reportedVias;
};

TEST_F(ViaDispatch, EveryMulticastViaIsHandledAndEveryDisagreementReported) {
    for (const MulticastCase& one : std::vector<MulticastCase>{
             {{0}, 0, {}},
             {{0, 0, 0}, 0, {}},
             {{2, 2}, 2, {}},
             {{0, 0, 2}, 1, {2}},
             {{0, 2, 2}, 1, {1, 2}},
             {{0, 2, 1}, 1, {1}},
             {{0, 2, 0}, 1, {1, 2}},
             {{1, 0, 0}, 1, {1, 2}},
             {{255, 2, 2}, 2, {}},
             {{255, 255}, 1, {}},
             {{2, 255}, 1, {1}},
         }) {
        for (const bool counting : {true, false}) {
            counters = Tessel::make<OvixNamedCounters>();
            answers(one.results);
            const auto set = multicastSet(one.results.size());
            EXPECT_EQ(plugin->handleViaSet(contextFor(set, counting)), one.expected);
            Weights all;
            std::vector<std::string> expected =
                lines({"ViaSet type: multicast, via count: " + std::to_string(one.results.size())});
            for (std::uint32_t i = 0; i < one.results.size(); ++i) {
                all.push_back(i);
            }
            for (const std::uint32_t via : one.reportedVias) {
                expected.push_back("Pkt 7: Handler for multicast via " + std::to_string(via) +
                                   " returned inconsistent processing result");
            }
            EXPECT_EQ(order, all);
            EXPECT_EQ(trace, expected);
            EXPECT_EQ(counted("Exceptional", inconsistent),
                      counting ? one.reportedVias.size() : 0U);
            EXPECT_EQ(counters->counters().empty(), !counting || one.reportedVias.empty());
        }
    }
}

TEST_F(ViaDispatch, MulticastViasAreNeitherHashedForNorWeighed) {
    const auto hasher = tellingHasher(0);
    answers({1, 1});
    const auto set = Tessel::make<MadeUpViaSet>(Weights{0, 0}, Mpls::LfibViaSetType::multicast);
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(order, (Weights{0, 1}));
    EXPECT_EQ(hasher->asked, 0U);
}

TEST_F(ViaDispatch, TheNumberOfMulticastViasIsReadOnEveryPass) {
    const auto set = multicastSet(2);
    handlerIs([&](const Ptr<MplsContext>& context) {
        order.push_back(context->viaIndex().value());
        if (order.size() == 1) {
            set->weights.push_back(1);
        } else if (order.size() == 3) {
            set->weights.assign(1, 1);
        }
        return ProcessingResult{1};
    });
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(order, (Weights{0, 1, 2}));
}

TEST_F(ViaDispatch, MulticastViasWithoutAHandlerAgreeOnThat) {
    const auto set = multicastSet(3);
    set->viaTypeOfAll = Mpls::LfibViaType{88};
    EXPECT_EQ(plugin->handleViaSet(contextFor(set)), 1);
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "Via type %s handler not found", 3)}));
}

} // namespace

} // namespace ViaDispatchTest
