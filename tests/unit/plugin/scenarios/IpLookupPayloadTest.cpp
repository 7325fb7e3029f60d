// What lies under the last label, by the via's payload type.

#include <ostream>

#include "IpLookupTesting.h"

namespace IpLookupPayloadTest {

namespace {

using namespace TestSupport;

struct PayloadCase {
    const char* name;
    PayloadType type;
    Bytes payload;
    const char* address;     ///< "": none
    const char* reason = ""; ///< of the drop
};

void PrintTo(const PayloadCase& one, std::ostream* out) {
    *out << one.name;
}

class Payload : public IpLookupViaFixture, public ::testing::WithParamInterface<PayloadCase> {};

TEST_P(Payload, IsPointedAtOrDroppedForAReason) {
    const PayloadCase& one = GetParam();
    const Bytes frame = mplsFrame({{100}}, one.payload);
    EXPECT_EQ(process(frame, lookupIn("default", one.type)), 1);
    EXPECT_EQ(nexthop().address().text(), one.address);
    EXPECT_EQ(counterActions(), one.address[0] != '\0' ? 1U : 0U);
    if (one.reason[0] != '\0') {
        expectDrop(one.reason);
    } else {
        EXPECT_EQ(rewrites(), 1U);
        EXPECT_TRUE(counters->counters().empty());
    }
    EXPECT_EQ(process(frame, lookupIn("default", one.type), 1, false), 1);
    EXPECT_EQ(nexthop().address().text(), one.address) << "without counters";
    EXPECT_EQ(counters->counters().size(), one.reason[0] != '\0' ? 1U : 0U);
}

constexpr const char* noInner = "No inner headers for v4 payload";
constexpr const char* noInnerForAuto = "No inner headers for auto decided payload";

INSTANTIATE_TEST_SUITE_P(
    IpLookupVia, Payload,
    ::testing::ValuesIn(std::vector<PayloadCase>{
        {"Ipv4", PayloadType::ipv4, ip4, "192.0.2.1"},
        {"Ipv4Options", PayloadType::ipv4, Raw::ipv4({.options = Raw::filled(8, 1)}, Raw::udp()),
         "192.0.2.1"},
        {"Ipv4Nothing", PayloadType::ipv4, {}, "", noInner},
        {"Ipv4HeaderCutShort", PayloadType::ipv4, Bytes(ip4.begin(), ip4.begin() + 19), "",
         noInner},
        {"Ipv4TooShortForAnything", PayloadType::ipv4, Bytes(19, 0), "", noInner},
        {"Ipv6", PayloadType::ipv6, ip6, "2001:db8::2"},
        {"Ipv6Nothing", PayloadType::ipv6, {}, "", noInner},
        {"Ipv6HeaderCutShort", PayloadType::ipv6, Bytes(ip6.begin(), ip6.begin() + 39), "",
         noInner},
        {"Ipv6ButIpv4OfFewerBytes", PayloadType::ipv6, ip4, "", noInner},
        {"AutoIpv4", PayloadType::automatic, ip4, "192.0.2.1"},
        {"AutoIpv6", PayloadType::automatic, ip6, "2001:db8::2"},
        {"AutoNothing", PayloadType::automatic, {}, "", noInnerForAuto},
        {"AutoTooShortForAVersion", PayloadType::automatic, Bytes{0x45}, "", noInnerForAuto},
        {"AutoIpv4HeaderCutShort", PayloadType::automatic, Bytes(ip4.begin(), ip4.begin() + 19), "",
         noInnerForAuto},
        {"AutoIpv6HeaderCutShort", PayloadType::automatic, Bytes(ip6.begin(), ip6.begin() + 39), "",
         noInnerForAuto},
        {"AutoTooShortForEthernet", PayloadType::automatic, Bytes(13, 0), "", noInnerForAuto},
        {"AutoEthernet", PayloadType::automatic, ethernet, "",
         "Inner header isn't an IP(6) header for auto decided payload. Is Eth"},
        {"Ethernet", PayloadType::ethernet, ethernet, "",
         "Ethernet is unsupported as a payload type"},
        {"EthernetOverIp", PayloadType::ethernet, ip4, "",
         "Ethernet is unsupported as a payload type"},
        {"Undefined", PayloadType::undefined, ip4, "", "Undefined payload"},
        {"NoneIsLeftAsItIs", PayloadType::none, ip4, ""},
        {"NoneOverNothing", PayloadType::none, {}, "", "no rewrite"},
        {"UnknownTypeIsLeftAsItIs", PayloadType{6}, ip4, ""},
        {"HighestTypeIsLeftAsItIs", PayloadType{255}, {}, ""},
    }),
    [](const auto& given) { return given.param.name; });

} // namespace

} // namespace IpLookupPayloadTest
