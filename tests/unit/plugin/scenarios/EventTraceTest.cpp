#include <map>

#include "MadeUpVias.h"

namespace EventTraceTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

/// Notes with each trace line what was counted when it was written, and where it went.
class EventTrace : public MadeUpViasFixture {
  protected:
    struct Line {
        std::string handle;
        unsigned level;
        std::string text;
        std::uint64_t countedBefore;
    };

    ~EventTrace() override { source().ringLevelIs(TraceSource::off); }

    void SetUp() override {
        MadeUpViasFixture::SetUp();
        TraceOutput::instance().textSinkIs(
            [this](std::string_view handle, unsigned level, std::string_view text) {
                std::uint64_t counts = 0;
                for (const auto& counter : counters->counters()) {
                    counts += counter.count;
                }
                written.push_back({std::string(handle), level, std::string(text), counts});
            });
        source().ringLevelIs(0);
    }

    static TraceSource& source() {
        return TraceSource::named("Routing::Mpls", "Ovix::Routing::Mpls");
    }
    Ptr<RoutingContext> frame() { return contextOf(mplsFrame({{100}}, udpPacket(0x0a090001))); }
    Ptr<MplsContext> contextFor(const Ptr<OvixMplsViaSet>& set) {
        return Tessel::make<MplsContext>(frame(), entryOf(100), nullptr, set, nullptr,
                                         Lumo::MplsStackEntryIndex(0), oneNexthop());
    }
    void findInLfib() {
        plugin->viaSetFromLfibStatus(frame(), Ptr<const Mpls::LfibStatus>(writers[decap]->status()),
                                     key(100));
    }
    void findInHardware() { plugin->viaSetFromHwStatus(frame(), hardware, key(100)); }
    void rawRoute(std::size_t viaKeys) {
        Mpls::LfibViaSet raw;
        raw.owner = 1;
        for (std::size_t i = 0; i < viaKeys; ++i) {
            raw.viaKeys.push({});
        }
        writers[decap]->rawRouteIs(key(100), raw);
    }
    std::string lastOfTheRing() const {
        std::string last;
        TraceOutput::instance().ring().visit([&](const TraceRing::Record& record) {
            last = std::string(record.tag) + " " + std::to_string(record.level) + " " +
                   std::string(record.line.view());
        });
        return last;
    }

    /// The event's line is the last one written, behind the packet's id, after the event was
    /// counted, to both destinations at level 0.
    void expectLast(const std::string& start, std::uint64_t counted) {
        ASSERT_FALSE(written.empty());
        const Line& line = written.back();
        EXPECT_EQ(line.text.rfind("Pkt 7: " + start, 0), 0U) << line.text;
        EXPECT_EQ(line.countedBefore, counted) << line.text;
        EXPECT_EQ(line.handle, "Ovix::Routing::Mpls");
        EXPECT_EQ(line.level, 0U);
        EXPECT_EQ(lastOfTheRing(), "Routing::Mpls 0 " + line.text);
        written.clear();
        counters = Tessel::make<OvixNamedCounters>();
    }

    std::vector<Line> written;
};

TEST_F(EventTrace, UnusableLfibRoutesAreCountedBeforeTheyAreTraced) {
    findInLfib();
    expectLast("No via set in lfib ", 1);
    rawRoute(0);
    findInLfib();
    expectLast("No via keys in lfib ", 1);
    rawRoute(2);
    findInLfib();
    expectLast("More than 1 via key in lfib ", 1);
}

TEST_F(EventTrace, UnusableHardwareRoutesAreCountedBeforeTheyAreTraced) {
    findInHardware();
    expectLast("No route in hw status for label 100", 0);
    hardware->routeIs({key(100), 9, true});
    findInHardware();
    expectLast("Route is unprogrammed for label 100", 0);
    hardware->routeIs({key(100), 9, false});
    findInHardware();
    expectLast("No adjacency for label 100", 1);
    hardware->adjacencyIs(9, Mpls::Hardware::Adjacency::create({}, {}, true));
    findInHardware();
    ASSERT_EQ(written.size(), 2U);
    EXPECT_EQ(written[0].text, "Pkt 7: Reading backups from adjacency for 100");
    EXPECT_EQ(written[0].countedBefore, 0U);
    expectLast("No valid vias adjacency for label 100", 1);
}

TEST_F(EventTrace, UnhandledViasAreCountedBeforeTheyAreTraced) {
    const auto none = Tessel::make<MadeUpViaSet>(std::vector<std::uint32_t>{});
    plugin->handleViaSet(contextFor(none));
    ASSERT_EQ(written.size(), 2U);
    EXPECT_EQ(written[0].text, "Pkt 7: ViaSet type: unicast, via count: 0");
    EXPECT_EQ(written[0].countedBefore, 0U);
    expectLast("No vias", 1);

    const auto unknown = Tessel::make<MadeUpViaSet>();
    unknown->viaTypeOfAll = Mpls::LfibViaType{88};
    plugin->handleVia(contextFor(unknown), 0);
    expectLast("Via type 88 handler not found", 1);

    handlerAnswers({1, 2});
    const auto several = Tessel::make<MadeUpViaSet>(std::vector<std::uint32_t>{1, 1},
                                                    Mpls::LfibViaSetType::multicast);
    plugin->handleViaSet(contextFor(several));
    expectLast("Handler for multicast via 1 returned inconsistent processing result", 1);
}

TEST_F(EventTrace, AViaThatCannotBeUsedIsCountedBeforeItIsTraced) {
    const auto handler = plugin->mplsViaTypeHandlerRegistry()->handler(Mpls::LfibViaType::ip);
    const auto set = Tessel::make<MadeUpViaSet>();
    for (const char* reason : {"No via", "no rewrite"}) {
        const auto context = contextFor(set);
        context->viaIndexIs(0);
        handler->processMplsVia(context);
        expectLast(reason, 1);
        set->viaOfAll.nexthopVlan = 1; // something, but not an operation
    }
}

} // namespace

} // namespace EventTraceTest
