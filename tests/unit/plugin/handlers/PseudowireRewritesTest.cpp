#include "handlers/PseudowireRewrites.h"

#include <gtest/gtest.h>

#include "FrameBytes.h"
#include "MplsOvixPlugin.h"
#include "Ovix/rewrite/MplsRewrites.h"

namespace PseudowireRewritesTest {

namespace {

using namespace Ovix;
using namespace TestSupport::Raw;

Ptr<RoutingContext> contextOf(const Bytes& frame, PktHdrType first) {
    return Tessel::make<RoutingContext>(
        std::uint64_t{1},
        Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt(frame), first), nullptr);
}

Bytes bytesOf(const RoutingContext& context) {
    const auto data = context.packetContext()->pkt()->data();
    return {data.begin(), data.end()};
}

/// A record that pushes labels below 256, outermost first.
Ptr<EthOverMplsRewriteInfo> ethOverMpls(std::initializer_list<std::uint8_t> labels) {
    Bytes packed;
    for (const std::uint8_t label : labels) {
        packed.insert(packed.end(), {0, 0, label});
    }
    return Tessel::make<EthOverMplsRewriteInfo>(Lumo::UnboundedMplsLabelOperation(packed));
}

const auto controlWord = Tessel::make<ControlWordPushRewriteInfo>();
const Bytes zeroWord = filled(4, 0);
const Bytes ip4Frame = join({eth(ethIpv4), ipv4({.tos = 0xb8}, udp())});

/// What the rewrites make of a frame.
Bytes carried(const Bytes& frame, std::initializer_list<std::uint8_t> labels,
              bool withControlWord) {
    const auto context = contextOf(frame, PktHdrType::eth);
    EXPECT_FALSE(EthOverMplsRewriteImpl::fromInfo(ethOverMpls(labels))->apply(context));
    if (withControlWord) {
        EXPECT_FALSE(ControlWordPushRewriteImpl::fromInfo(controlWord)->apply(context));
    }
    EXPECT_EQ(context->packetContext()->outerType(), PktHdrType::mpls);
    return bytesOf(*context);
}

} // namespace

TEST(EthOverMplsRewrite, PutsItsStackInFrontOfTheWholeFrameWithTtl255AndTheFramesClass) {
    const struct {
        const char* what;
        Bytes frame;
        std::uint8_t tc;
    } rows[]{
        {"DSCP of IPv4", ip4Frame, 5},
        {"DSCP of IPv6", join({eth(ethIpv6), ipv6({.trafficClass = 0x60}, udp())}), 3},
        {"802.1p priority", join({eth(ethVlan), tag(0x4005, ethIpv4), ipv4({.tos = 0xb8}, udp())}),
         2},
        {"priority tag of the outer of two",
         join({eth(ethServiceVlan), tag(0xe000, ethVlan), tag(0x2005, 0x88b5)}), 7},
        {"TC of a labelled frame", join({eth(ethMpls), stack({{77, 6}}), filled(20, 1)}), 6},
        {"no class", join({eth(0x0806), filled(28, 1)}), 0},
        {"no payload", eth(0x88b5), 0},
        {"cut short in its tag", join({eth(ethVlan), filled(3, 0xff)}), 0},
        {"largest", join({eth(0x88b5), filled(65535 - 14 - 8, 1)}), 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(carried(row.frame, {100, 50}, false),
                  join({stack({{100, row.tc, 255}, {50, row.tc, 255}}), row.frame}))
            << row.what;
    }
}

TEST(EthOverMplsRewrite, PushesLabelZeroWhenItsRecordNamesNone) {
    EXPECT_EQ(carried(ip4Frame, {}, false), join({stack({{0, 5, 255}}), ip4Frame}));
}

TEST(EthOverMplsRewrite, RefusesAFrameThatThePacketHasNoRoomFor) {
    const Bytes frame = join({eth(0x88b5), filled(65535 - 14 - 7, 1)});
    const auto context = contextOf(frame, PktHdrType::eth);
    const auto refused = EthOverMplsRewriteImpl::fromInfo(ethOverMpls({100, 50}))->apply(context);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->reason(), "Label stack does not fit the packet");
    EXPECT_EQ(bytesOf(*context), frame);
}

TEST(ControlWordPushRewrite, InsertsFourZeroBytesBehindTheStack) {
    const Bytes payload = filled(60, 0xa5);
    const struct {
        const char* what;
        Bytes stack;
        Bytes payload;
    } rows[]{
        {"one label", stack({{16, 7, 255}}), payload},
        {"three labels", stack({{100, 1, 1}, {200, 2, 2}, {300, 3, 3}}), payload},
        {"seven labels",
         stack({{100}, {200, 2, 2}, {300, 3, 3}, {7}, {400, 4, 4}, {500, 5, 5}, {600, 6, 6}}),
         payload},
        {"TTL 0 and all bits set", stack({{0xfffff, 7, 0}, {0xfffff, 7, 255}}), payload},
        {"nothing but the stack", stack({{16}, {17}}), {}},
        {"one byte behind the stack", stack({{16}}), {9}},
        {"a stack without a bottom", join({entry({16}, false), entry({17}, false)}), {}},
        {"what follows the bottom is not the stack's", stack({{16}}), stack({{17}})},
        {"no stack", {}, {}},
        {"no whole entry", {}, {1, 2, 3}},
        {"largest", stack({{16}}), filled(65535 - 8, 1)},
    };
    for (const auto& row : rows) {
        const auto context = contextOf(join({row.stack, row.payload}), PktHdrType::mpls);
        EXPECT_FALSE(ControlWordPushRewriteImpl::fromInfo(controlWord)->apply(context)) << row.what;
        EXPECT_EQ(bytesOf(*context), join({row.stack, zeroWord, row.payload})) << row.what;
    }
}

TEST(ControlWordPushRewrite, GivesTheContextANewPacketThatIsParsedAgain) {
    const Bytes frame = join({stack({{16}}), ip4Frame});
    const auto context = contextOf(frame, PktHdrType::mpls);
    PacketContext& packet = *context->packetContext();
    const Ptr<Lumo::Pkt> old = packet.pkt();
    packet.parsedPkt().maybeDoFullParse();
    ControlWordPushRewriteImpl::fromInfo(controlWord)->apply(context);
    EXPECT_NE(packet.pkt(), old);
    EXPECT_EQ(Bytes(old->data().begin(), old->data().end()), frame);
    EXPECT_EQ(packet.parsedPkt().header(0)->payload().size(), ip4Frame.size() + 4);
}

TEST(ControlWordPushRewrite, RefusesAFrameThatThePacketHasNoRoomFor) {
    for (const std::size_t size : {65532U, 65535U}) {
        const Bytes frame = join({stack({{16}}), filled(size - 4, 1)});
        const auto context = contextOf(frame, PktHdrType::mpls);
        const auto refused = ControlWordPushRewriteImpl::fromInfo(controlWord)->apply(context);
        ASSERT_TRUE(refused) << size;
        EXPECT_EQ(refused->reason(), "Control word does not fit the packet");
        EXPECT_EQ(bytesOf(*context), frame);
    }
}

TEST(PseudowireRewrites, InListOrderMakeStackControlWordAndFrame) {
    EXPECT_EQ(carried(ip4Frame, {100, 50}, true),
              join({stack({{100, 5, 255}, {50, 5, 255}}), zeroWord, ip4Frame}));
}

TEST(PseudowireRewrites, TellTheirNamesAndTheRecordsTheyHold) {
    const auto eth = ethOverMpls({50});
    EXPECT_EQ(eth->typeName().text(), "EthOverMplsRewriteInfo");
    EXPECT_EQ(controlWord->typeName().text(), "ControlWordPushRewriteInfo");
    const auto ethImpl = ethOverMplsRewriteImplFactory(eth);
    EXPECT_EQ(ethImpl->name(), "EthOverMplsRewriteImpl");
    EXPECT_EQ(ethImpl->baseInfo(), eth);
    const auto wordImpl = controlWordPushRewriteImplFactory(controlWord);
    EXPECT_EQ(wordImpl->name(), "ControlWordPushRewriteImpl");
    EXPECT_EQ(wordImpl->baseInfo(), controlWord);
    EXPECT_EQ(EthOverMplsRewriteImpl::fromInfo(eth)->baseInfo(), eth);
    EXPECT_EQ(ControlWordPushRewriteImpl::fromInfo(controlWord)->baseInfo(), controlWord);
}

TEST(PseudowireRewrites, HoldTheirRecord) {
    auto eth = ethOverMpls({50});
    const auto impl = ethOverMplsRewriteImplFactory(eth);
    EXPECT_EQ(eth->references(), 2U);
    eth.reset();
    const auto context = contextOf(ip4Frame, PktHdrType::eth);
    EXPECT_FALSE(impl->apply(context));
    EXPECT_EQ(bytesOf(*context), join({stack({{50, 5, 255}}), ip4Frame}));
}

TEST(PseudowireRewrites, AreBoundToTheirRecords) {
    const auto map = Tessel::make<RewriteInfoImplMap>();
    MplsOvixPlugin::addRewriteMaps(map);
    EXPECT_EQ(map->rewriteFn(EthOverMplsRewriteInfo::infoTypeName),
              &EthOverMplsRewriteImpl::fromInfo);
    EXPECT_EQ(map->rewriteFn(ControlWordPushRewriteInfo::infoTypeName),
              &ControlWordPushRewriteImpl::fromInfo);
}

TEST(PseudowireRewrites, TakeObjectsFromSlabsAndBuffersFromThePool) {
    carried(ip4Frame, {100, 50}, true);
    const auto ofEth = EthOverMplsRewriteImpl::memAllocationTracker();
    const auto ofWord = ControlWordPushRewriteImpl::memAllocationTracker();
    const std::uint64_t buffers = Lumo::globalPktManager()->buffersFromHeap();
    for (int i = 0; i < 1000; ++i) {
        carried(ip4Frame, {100, 50}, true);
    }
    EXPECT_EQ(EthOverMplsRewriteImpl::memAllocationTracker().chunksFromHeap, ofEth.chunksFromHeap);
    EXPECT_EQ(ControlWordPushRewriteImpl::memAllocationTracker().chunksFromHeap,
              ofWord.chunksFromHeap);
    EXPECT_EQ(EthOverMplsRewriteImpl::memAllocationTracker().objectsInUse, ofEth.objectsInUse);
    EXPECT_EQ(Lumo::globalPktManager()->buffersFromHeap(), buffers);
}

TEST(PseudowireRewritesDeathTest, RefuseAnAbsentOrForeignRecord) {
    const char* const broken = "MplsVorn/OvixPlugin/MplsOvixPlugin.*info";
    EXPECT_DEATH(EthOverMplsRewriteImpl::fromInfo(nullptr), broken);
    EXPECT_DEATH(EthOverMplsRewriteImpl::fromInfo(controlWord), broken);
    EXPECT_DEATH(ControlWordPushRewriteImpl::fromInfo(nullptr), broken);
    EXPECT_DEATH(ControlWordPushRewriteImpl::fromInfo(ethOverMpls({50})), broken);
}

TEST(PseudowireRewritesDeathTest, AssertWhatTheFrameStartsWith) {
    const auto eth = EthOverMplsRewriteImpl::fromInfo(ethOverMpls({50}));
    const auto word = ControlWordPushRewriteImpl::fromInfo(controlWord);
    const std::string source = "MplsVorn/OvixPlugin/MplsOvixPlugin";
    const std::string notEth = R"x("firstHdr->pktHdrType\(\) == EthParser::pktHdrName\(\)")x";
    const std::string notMpls = R"x("firstHdr->pktHdrType\(\) == MplsParser::pktHdrName\(\)")x";
    const Bytes labelled = join({stack({{16}}), ip4Frame});
    EXPECT_DEATH(eth->apply(contextOf(labelled, PktHdrType::mpls)), source + ".*" + notEth);
    EXPECT_DEATH(eth->apply(contextOf(filled(13, 0), PktHdrType::eth)), source + ".*" + notEth);
    EXPECT_DEATH(word->apply(contextOf(ip4Frame, PktHdrType::eth)), source + ".*" + notMpls);
}

} // namespace PseudowireRewritesTest
