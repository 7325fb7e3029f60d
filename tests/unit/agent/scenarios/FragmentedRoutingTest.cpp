// IP packets too big for their way out: cut into frames when their source lets them.

#include <numeric>

#include "ForwarderTesting.h"

namespace FragmentedRoutingTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

const std::string fragmentConfig = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", mtu: 132, addresses: [10.0.2.1/24, "2001:db8:2::1/64"]}
  - {name: dark, mac: "02:00:00:00:00:03", mtu: 132, status: down, addresses: [10.0.3.1/24]}
  - {name: tiny, mac: "02:00:00:00:00:04", addresses: [10.0.4.1/24]}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
  - {address: "2001:db8:2::2", port: east, mac: "02:00:00:00:02:02"}
  - {address: 10.0.3.2, port: dark, mac: "02:00:00:00:03:02"}
  - {address: 10.0.4.2, port: tiny, mac: "02:00:00:00:04:02"}
routes:
  - {prefix: 10.1.0.0/24, via: {nexthop: 10.0.2.2}}
  - {prefix: 10.1.1.0/24, via: {nexthop: 10.0.2.2, labels: [301]}}
  - {prefix: 10.1.2.0/24, via: {nexthop: 10.0.2.2, labels: [301, 302]}}
  - {prefix: 10.1.3.0/24, via: {nexthop: 10.0.2.2, labels: [301, 302, 303]}}
  - {prefix: 10.3.0.0/24, via: {nexthop: 10.0.3.2}}
  - {prefix: 10.4.0.0/24, via: {nexthop: 10.0.4.2}}
  - {prefix: 10.5.0.0/24, via: {nexthop: 10.0.4.2, labels: [301, 302, 303, 304, 305, 306, 307]}}
  - {prefix: "2001:db8::/64", via: {nexthop: "2001:db8:2::2"}}
)";

/// Counts what it hears of.
class CountingListener : public DropListener {
  public:
    void tooBig(const Frame&, std::span<const std::uint8_t>, std::uint32_t) override { ++heard; }
    void undelivered(const Frame&, std::string_view) override {}

    std::size_t heard = 0;
};

class FragmentedRouting : public ForwarderFixture {
  protected:
    enum RoutingPort : std::uint32_t { west, east, dark, tiny };

    FragmentedRouting() : ForwarderFixture(fragmentConfig) {
        tables.drops = &listener;
        ports.ports()[tiny].mtu = 27;
    }

    static Bytes counting(std::size_t size) {
        Bytes bytes(size);
        std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
        return bytes;
    }
    static Bytes part(const Bytes& bytes, std::size_t from, std::size_t size) {
        const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(from);
        return {begin, begin + static_cast<std::ptrdiff_t>(std::min(size, bytes.size() - from))};
    }
    static Ipv4 to(std::uint32_t destination, std::uint16_t fragment = 0, std::uint8_t ttl = 64) {
        Ipv4 fields;
        fields.destination = destination;
        fields.fragment = fragment;
        fields.ttl = ttl;
        fields.ident = 0x1234;
        return fields;
    }
    /// One packet of 300 bytes of data that is dropped whole.
    void expectDropped(const Bytes& frame, const std::string& reason, std::size_t heard) {
        const std::size_t before = listener.heard;
        const auto counts = dropped();
        const auto found = counts.find(reason);
        receive(frame);
        EXPECT_EQ(dropped().at(reason), 1 + (found != counts.end() ? found->second : 0));
        EXPECT_EQ(listener.heard - before, heard);
        EXPECT_EQ(summary().forwardedTotal().frames, 0U);
    }

    CountingListener listener;
};

} // namespace

TEST_F(FragmentedRouting, EachFragmentHasTheLabelsAndTagsOfThePacket) {
    for (std::uint32_t labels = 0; labels <= 3; ++labels) {
        out[east].frames.clear();
        const std::uint32_t destination = 0x0a010001 + (labels << 8U);
        const Bytes data = counting(300);
        receive(join({eth(ethVlan), tag(0x2000, ethIpv4), ipv4(to(destination), data)}));
        std::vector<Entry> entries;
        for (std::uint32_t i = 0; i < labels; ++i) {
            entries.push_back({301 + i, 0, 63});
        }
        // 132 bytes without labels and the header are 112, with one label 108.
        const std::size_t step = (132 - 20 - 4 * labels) / 8 * 8;
        Frames expected;
        for (std::size_t at = 0; at < data.size(); at += step) {
            const bool isLast = at + step >= data.size();
            const auto place = static_cast<std::uint16_t>((isLast ? 0U : 0x2000U) | at / 8);
            expected.push_back(
                join({eastHeader(ethVlan), tag(0x2000, labels > 0 ? ethMpls : ethIpv4),
                      stack(entries), ipv4(to(destination, place, 63), part(data, at, step))}));
        }
        EXPECT_EQ(out[east].frames, expected) << labels;
    }
    EXPECT_EQ(listener.heard, 0U);
    EXPECT_EQ(dropped(), ReasonCounts{});
}

TEST_F(FragmentedRouting, CountsTheFrameAndItsFurtherFragmentsOnce) {
    receive(join({eth(ethIpv4), ipv4(to(0x0a010001), counting(300))}));
    receive(join({eth(ethIpv4), ipv4(to(0x0a010001), counting(112))}));
    const Summary counted = summary();
    EXPECT_EQ(counted.in.frames, 2U);
    EXPECT_EQ(counted.replicas, 2U);
    EXPECT_EQ(counted.forwardedTotal(), (Traffic{4, 4 * (14 + 20) + 300 + 112}));
}

TEST_F(FragmentedRouting, APacketWithDfIsDroppedAndReported) {
    const Bytes data = counting(300);
    expectDropped(join({eth(ethIpv4), ipv4(to(0x0a010001, 0x4000), data)}), "MTU exceeded", 1);
    expectDropped(join({eth(ethIpv4), ipv4(to(0x0a010101, 0x4000), data)}), "MTU exceeded", 1);
    expectDropped(join({eth(ethIpv6), ipv6({}, data)}), "MTU exceeded", 1);
    expectDropped(join({eth(ethIpv4), ipv4(to(0x0a040001), data)}), "MTU exceeded", 1);
    expectDropped(join({eth(ethIpv4), ipv4(to(0x0a050001), data)}), "MTU exceeded", 1);
    expectDropped(join({eth(ethIpv4), ipv4(to(0x0a030001), data)}), "Egress port is down", 0);
}

TEST_F(FragmentedRouting, APoppedPacketIsFragmentedLikeOneWithoutLabels) {
    const auto popped = [](const Bytes& packet) {
        return join({eth(ethMpls), stack({{100}}), packet});
    };
    const auto parts = [&](std::size_t labels) {
        const std::size_t step = (132 - 20 - 4 * labels) / 8 * 8;
        Frames all;
        for (std::size_t at = 0; at < 300; at += step) {
            const auto place =
                static_cast<std::uint16_t>((at + step >= 300 ? 0U : 0x2000U) | at / 8);
            all.push_back(join({eastHeader(labels > 0 ? ethMpls : ethIpv4),
                                labels > 0 ? stack({{301, 0, 63}}) : Bytes(),
                                ipv4(to(0x0a010001 + (labels > 0 ? 0x100U : 0U), place, 63),
                                     part(counting(300), at, step))}));
        }
        return all;
    };
    // To a next hop, into a VRF, and into a VRF whose route pushes a label.
    for (const char* destination : {"east", "10.1.0.1", "10.1.1.1"}) {
        const bool pushes = std::string(destination) == "10.1.1.1";
        const bool isPort = std::string(destination) == "east";
        handler->decide = always(withRewrite(
            isPort ? nexthop("east", "10.0.2.2") : nexthop("", destination), popInfo()));
        out[east].frames.clear();
        receive(popped(ipv4(to(pushes ? 0x0a010101 : 0x0a010001), counting(300))));
        EXPECT_EQ(out[east].frames, parts(pushes ? 1 : 0)) << destination;
    }
    const Summary counted = summary();
    EXPECT_EQ(counted.in.frames, 3U);
    EXPECT_EQ(counted.forwardedTotal().frames, 3U + counted.replicas);
    EXPECT_EQ(listener.heard, 0U);
}

TEST_F(FragmentedRouting, WhatTheLinkPutBehindAPoppedPacketDoesNotMakeItTooBig) {
    const Bytes packet = ipv4(to(0x0a010001), counting(112)); // 132 bytes, as long as may be
    handler->decide = always(withRewrite(nexthop("east", "10.0.2.2"), popInfo()));
    receive(join({eth(ethMpls), stack({{100}}), packet, filled(8, 0xee)}));
    ASSERT_EQ(out[east].frames.size(), 1U);
    EXPECT_EQ(out[east].frames[0],
              join({eastHeader(ethIpv4), ipv4(to(0x0a010001, 0, 63), counting(112))}));
}

TEST_F(FragmentedRouting, APoppedPacketWithDfOrADamagedHeaderIsNotFragmented) {
    handler->decide = always(withRewrite(nexthop("east", "10.0.2.2"), popInfo()));
    const Bytes labels = stack({{100}});
    const Bytes data = counting(300);
    expectDropped(join({eth(ethMpls), labels, ipv4(to(0x0a010001, 0x4000), data)}), "MTU exceeded",
                  1);
    expectDropped(join({eth(ethMpls), labels, ipv6({}, data)}), "MTU exceeded", 1);
    Bytes damaged = ipv4(to(0x0a010001), data);
    damaged[12] ^= 1U; // a new checksum would hide it
    expectDropped(join({eth(ethMpls), labels, damaged}), "MTU exceeded", 1);
}

TEST_F(FragmentedRouting, APacketThatLeavesWithItsLabelsIsNotFragmented) {
    handler->decide = always(withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300)));
    expectDropped(join({eth(ethMpls), stack({{100}}), ipv4(to(0x0a010001), counting(300))}),
                  "MTU exceeded", 1);
}

namespace {

/// Counts how often it is applied.
struct CountedAction : Ovix::CounterActionImpl {
    static inline unsigned applied = 0;
    std::string_view name() const noexcept override { return "Counted"; }
    void apply(const Ptr<Ovix::RoutingContext>&) override { ++applied; }
};
struct CountedActionInfo : Ovix::CounterActionInfo {
    static inline const Tessel::TypeName name{"Counted"};
    const Tessel::TypeName& typeName() const noexcept override { return name; }
};

} // namespace

TEST_F(FragmentedRouting, ALabelIsCountedOnceForAllFragments) {
    manager->sharedObjects()->rewriteInfoImplMap()->counterMapIs(
        "Counted", [](const Ptr<Ovix::CounterActionInfo>&) {
            return Ptr<Ovix::CounterActionImpl>(Tessel::make<CountedAction>());
        });
    auto to = withRewrite(nexthop("east", "10.0.2.2"), popInfo());
    to->rewriteInfos().finalCounterActionInfoEnq(Tessel::make<CountedActionInfo>());
    CountedAction::applied = 0;
    receive(join({eth(ethMpls), stack({{100}}),
                  ipv4(FragmentedRouting::to(0x0a010001), counting(300))}),
            always(to));
    EXPECT_EQ(out[east].frames.size(), 3U);
    EXPECT_EQ(CountedAction::applied, 1U);
}

TEST_F(FragmentedRouting, FragmentsOfATruncatedFrameAreTruncated) {
    const Bytes packet = ipv4(to(0x0a010101), counting(200));
    receive(join({eth(ethIpv4), part(packet, 0, 60)}), packet.size() - 60);
    EXPECT_EQ(out[east].frames,
              (Frames{join({eastHeader(ethMpls), stack({{301, 0, 63}}),
                            part(ipv4(to(0x0a010101, 0x2000, 63), counting(104)), 0, 60)}),
                      join({eastHeader(ethMpls), stack({{301, 0, 63}}),
                            part(ipv4(to(0x0a010101, 13, 63), counting(96)), 0, 20)})}));
    EXPECT_EQ(out[east].originalLengths,
              (std::vector<std::uint32_t>{14 + 4 + 20 + 104, 14 + 4 + 20 + 96}));
}

} // namespace FragmentedRoutingTest
