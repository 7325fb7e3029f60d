#include "Live/links/LinkMessages.h"

#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <vector>

namespace LinkMessagesTest {

namespace {

/// IFF_LOWER_UP, which <net/if.h> does not have.
constexpr unsigned int lowerUp = 1U << 16U;

using Lumo::EthAddr;
using OvixAgent::readLinkMessage;
using OvixAgent::readNeighbourMessage;
using Reach = OvixAgent::NeighbourState::Reach;

constexpr EthAddr mac{2, 0, 0, 0, 0, 1};

/// A message of one fixed part, to which attributes are appended.
template <typename Fixed>
class Message {
  public:
    Message(std::uint16_t type, const Fixed& fixed) : header(mnl_nlmsg_put_header(bytes)) {
        header->nlmsg_type = type;
        *static_cast<Fixed*>(mnl_nlmsg_put_extra_header(header, sizeof fixed)) = fixed;
    }
    Message& put(std::uint16_t type, const void* data, std::size_t size) {
        mnl_attr_put(header, type, size, data);
        return *this;
    }

    alignas(nlmsghdr) std::uint8_t bytes[512]{};
    nlmsghdr* header;
};

ifinfomsg linkPart(unsigned int flags, unsigned char family = AF_UNSPEC) {
    ifinfomsg fixed{};
    fixed.ifi_family = family;
    fixed.ifi_index = 4;
    fixed.ifi_flags = flags;
    return fixed;
}

ndmsg neighbourPart(unsigned char family, std::uint16_t state) {
    ndmsg fixed{};
    fixed.ndm_family = family;
    fixed.ndm_ifindex = 4;
    fixed.ndm_state = state;
    return fixed;
}

} // namespace

TEST(LinkMessages, ALinkIsUpWhenItIsEnabledOperationalAndHasACarrier) {
    const std::vector<std::pair<unsigned int, bool>> cases{
        {IFF_UP | IFF_RUNNING | lowerUp, true},
        {IFF_UP | IFF_RUNNING, false},
        {IFF_UP | lowerUp, false},
        {IFF_RUNNING | lowerUp, false},
        {IFF_UP, false},
        {0, false},
    };
    for (const auto& [flags, isUp] : cases) {
        const Message message(RTM_NEWLINK, linkPart(flags));
        EXPECT_EQ(readLinkMessage(*message.header)->isUp(), isUp) << flags;
    }
}

TEST(LinkMessages, AttributesOfAnUnexpectedSizeAreIgnored) {
    Message message(RTM_NEWLINK, linkPart(IFF_UP));
    message.put(IFLA_IFNAME, "unterminated", 4).put(IFLA_ADDRESS, mac.data(), 5);
    message.put(IFLA_MTU, mac.data(), 2);
    const auto link = readLinkMessage(*message.header);
    EXPECT_EQ(link->name, "unte");
    EXPECT_EQ(link->mac, EthAddr{});
    EXPECT_EQ(link->mtu, 0U);
}

TEST(LinkMessages, ShortAndBridgeMessagesAreIgnored) {
    Message tooShort(RTM_NEWLINK, linkPart(IFF_UP));
    tooShort.header->nlmsg_len -= 1;
    EXPECT_FALSE(readLinkMessage(*tooShort.header));
    tooShort.header->nlmsg_len = NLMSG_HDRLEN;
    EXPECT_FALSE(readLinkMessage(*tooShort.header));
    EXPECT_FALSE(readLinkMessage(*Message(RTM_DELLINK, linkPart(IFF_UP, AF_BRIDGE)).header));
}

TEST(LinkMessages, AMacIsUsableWhileConfirmedOrStale) {
    struct Case {
        std::uint16_t state;
        Reach reach;
        bool hasMac;
    };
    const std::vector<Case> cases{
        {NUD_REACHABLE, Reach::confirmed, true}, {NUD_PERMANENT, Reach::confirmed, true},
        {NUD_DELAY, Reach::confirmed, true},     {NUD_PROBE, Reach::confirmed, true},
        {NUD_STALE, Reach::stale, true},         {NUD_INCOMPLETE, Reach::asked, false},
        {NUD_FAILED, Reach::failed, false},      {NUD_NONE, Reach::unknown, false},
        {NUD_NOARP, Reach::unknown, false}, // groups: the kernel asks nobody for them
    };
    const std::uint8_t address[4]{192, 0, 2, 1};
    for (const Case& each : cases) {
        Message message(RTM_NEWNEIGH, neighbourPart(AF_INET, each.state));
        message.put(NDA_DST, address, 4).put(NDA_LLADDR, mac.data(), mac.size());
        const auto neighbour = readNeighbourMessage(*message.header);
        ASSERT_TRUE(neighbour);
        EXPECT_EQ(neighbour->reach, each.reach) << each.state;
        EXPECT_EQ(neighbour->mac.has_value(), each.hasMac) << each.state;
        EXPECT_EQ(neighbour->link, 4U);
        EXPECT_EQ(neighbour->address, Lumo::IpGenAddr::fromText("192.0.2.1"));
    }
}

TEST(LinkMessages, ANeighbourNeedsAnAddressOfItsFamily) {
    const std::uint8_t address[16]{0x20, 1, 0x0d, 0xb8};
    const std::vector<std::tuple<unsigned char, std::size_t, bool>> cases{
        {AF_INET, 4, true},   {AF_INET, 16, false},  {AF_INET, 3, false}, {AF_INET6, 16, true},
        {AF_INET6, 4, false}, {AF_BRIDGE, 4, false}, {AF_INET, 0, false},
    };
    for (const auto& [family, size, isGood] : cases) {
        Message message(RTM_NEWNEIGH, neighbourPart(family, NUD_STALE));
        message.put(NDA_DST, address, size);
        EXPECT_EQ(readNeighbourMessage(*message.header).has_value(), isGood) << +family << size;
    }
    Message without(RTM_NEWNEIGH, neighbourPart(AF_INET, NUD_STALE));
    EXPECT_FALSE(readNeighbourMessage(*without.header));
    without.header->nlmsg_len = NLMSG_HDRLEN + sizeof(ndmsg) - 1;
    EXPECT_FALSE(readNeighbourMessage(*without.header));
}

} // namespace LinkMessagesTest
