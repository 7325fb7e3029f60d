#include "Trace/TraceFilter.h"

#include "ForwarderTesting.h"
#include "Listing/Listings.h"

namespace TraceFilterTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

class TraceFilterTest : public ForwarderFixture {
  protected:
    bool matches(const TraceFilter& filter, const Bytes& frame, PortNumber port = west) const {
        return filter.matches({port, {}, frame, static_cast<std::uint32_t>(frame.size())}, ports);
    }
    static Lumo::IpGenPrefix prefix(const std::string& address, std::uint8_t length) {
        return Lumo::IpGenPrefix::of(Lumo::IpGenAddr::fromText(address), length);
    }
    std::string refusal(const std::string& request) const {
        const auto filter = requestedTrace(request, ports);
        return filter ? std::string() : filter.refused().what;
    }
};

} // namespace

TEST_F(TraceFilterTest, ALabelMayBeAnywhereInTheStackAndBehindTags) {
    TraceFilter filter;
    filter.label = 200;
    EXPECT_TRUE(matches(filter, labelled({{200}})));
    EXPECT_TRUE(matches(filter, labelled({{100}, {200}})));
    EXPECT_TRUE(matches(filter, join({eth(ethVlan), tag(5, ethMpls), stack({{200}})})));
    EXPECT_FALSE(matches(filter, labelled({{100}})));
    EXPECT_FALSE(matches(filter, join({eth(ethIpv4), stack({{200}})})));
    EXPECT_FALSE(matches(filter, Bytes(13, 0)));
}

TEST_F(TraceFilterTest, APrefixIsThatOfTheDestinationBeneathAllLabels) {
    TraceFilter filter;
    filter.prefix = prefix("10.0.2.0", 24);
    EXPECT_TRUE(matches(filter, join({eth(ethIpv4), packet()})));
    EXPECT_TRUE(matches(filter, labelled({{100}, {200}})));
    EXPECT_FALSE(matches(filter, join({eth(ethIpv4), packet(0x0a000302)})));
    EXPECT_FALSE(matches(filter, join({eth(ethMpls), stack({{100}})})));
    EXPECT_FALSE(matches(filter, join({eth(0x0806), packet()})));
    filter.prefix = prefix("2001:db8::", 32);
    Ipv6 fields;
    EXPECT_EQ(matches(filter, join({eth(ethIpv6), ipv6(fields, udp())})),
              filter.prefix->contains(ipDestinationIn(join({eth(ethIpv6), ipv6(fields, udp())}))));
}

TEST_F(TraceFilterTest, EverythingThatIsAskedForMustFit) {
    TraceFilter filter;
    EXPECT_TRUE(filter.isForAll());
    EXPECT_TRUE(matches(filter, labelled()));
    filter.port = west;
    filter.label = 100;
    EXPECT_FALSE(filter.isForAll());
    EXPECT_TRUE(matches(filter, labelled()));
    EXPECT_FALSE(matches(filter, labelled(), east));
    filter.prefix = prefix("10.7.0.0", 16);
    EXPECT_FALSE(matches(filter, labelled()));
}

TEST_F(TraceFilterTest, ARequestSaysWhatIsAskedFor) {
    const auto filter = requestedTrace(
        R"({"port":"east","label":100,"prefix":"10.0.2.9/24","reason":"hop","limit":7,"seconds":3})",
        ports);
    ASSERT_TRUE(filter);
    EXPECT_EQ(filter.value().port, static_cast<PortIndex>(east));
    EXPECT_EQ(filter.value().label, 100U);
    EXPECT_EQ(filter.value().prefix, prefix("10.0.2.0", 24));
    EXPECT_EQ(filter.value().reason, "hop");
    EXPECT_EQ(filter.value().limit, 7U);
    EXPECT_EQ(filter.value().time, std::chrono::seconds(3));
    EXPECT_TRUE(requestedTrace("{}", ports).value().isForAll());
}

TEST_F(TraceFilterTest, ARequestThatIsNoneIsRefusedWithItsMember) {
    EXPECT_EQ(refusal(R"({"port":"north"})"), "there is no port \"north\"");
    EXPECT_EQ(refusal(R"({"prefix":"10.0.0.0/33"})"), "\"10.0.0.0/33\" is no prefix");
    EXPECT_EQ(refusal(R"({"prefix":"ten/8"})"), "\"ten/8\" is no prefix");
    EXPECT_EQ(refusal(R"({"prefix":"10.0.0.0/8x"})"), "\"10.0.0.0/8x\" is no prefix");
    EXPECT_EQ(refusal(R"({"label":1048576})"), "label 1048576: it is a number from 0 to 1048575");
    EXPECT_EQ(refusal(R"({"limit":0})"), "limit 0: it is a number from 1 to 10000");
    EXPECT_EQ(refusal(R"({"seconds":"all"})"), "seconds \"all\": it is a number from 1 to 3600");
}

} // namespace TraceFilterTest
