#include "kernel/KernelLinks.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "OwnNetwork.h"

namespace KernelLinksTest {

using OvixFpm::KernelLink;

namespace {

/// A message about a link, as the kernel writes it, its parts to be left out or in another order.
class LinkMessage {
  public:
    explicit LinkMessage(std::uint16_t type = RTM_NEWLINK)
        : header_(mnl_nlmsg_put_header(bytes_.data())) {
        header_->nlmsg_type = type;
        mnl_nlmsg_put_extra_header(header_, sizeof(ifinfomsg));
    }
    LinkMessage& name(const char* name) {
        mnl_attr_put_strz(header_, IFLA_IFNAME, name);
        return *this;
    }
    LinkMessage& info(const char* kind, std::uint16_t type, std::uint32_t value) {
        nlattr* const info = mnl_attr_nest_start(header_, IFLA_LINKINFO);
        mnl_attr_put_strz(header_, IFLA_INFO_KIND, kind);
        nlattr* const data = mnl_attr_nest_start(header_, IFLA_INFO_DATA);
        mnl_attr_put_u32(header_, type, value);
        mnl_attr_nest_end(header_, data);
        mnl_attr_nest_end(header_, info);
        return *this;
    }
    std::optional<KernelLink> read() const { return OvixFpm::readLink(*header_); }
    /// As if the message, and no attribute in it, were that long.
    std::optional<KernelLink> readCut(std::uint32_t length) {
        header_->nlmsg_len = length;
        return read();
    }
    std::uint32_t length() const { return header_->nlmsg_len; }

  private:
    alignas(nlmsghdr) std::array<char, 512> bytes_{};
    nlmsghdr* header_;
};

} // namespace

TEST(KernelLinks, AVrfIsReadWithItsTable) {
    EXPECT_EQ(LinkMessage().name("red").info("vrf", IFLA_VRF_TABLE, 10).read(),
              (KernelLink{"red", 10}));
    EXPECT_EQ(LinkMessage().info("vrf", IFLA_VRF_TABLE, 0xfffffffe).name("blue").read(),
              (KernelLink{"blue", 0xfffffffe}));
}

TEST(KernelLinks, OtherInterfacesHaveNoTable) {
    const KernelLink red{"red", 0};
    EXPECT_EQ(LinkMessage().name("red").read(), red);
    EXPECT_EQ(LinkMessage().name("red").info("vlan", IFLA_VLAN_ID, 10).read(), red);
    EXPECT_EQ(LinkMessage().name("red").info("vrf", IFLA_VRF_TABLE + 1, 10).read(), red);
}

TEST(KernelLinks, OtherMessagesAreNotInterfaces) {
    EXPECT_FALSE(LinkMessage().info("vrf", IFLA_VRF_TABLE, 10).read());
    EXPECT_FALSE(LinkMessage(RTM_DELLINK).name("red").read());
}

TEST(KernelLinks, AnAttributeThatIsCutOffIsNotRead) {
    LinkMessage whole;
    whole.name("red").info("vrf", IFLA_VRF_TABLE, 10);
    const std::uint32_t length = whole.length();
    for (std::uint32_t cut = sizeof(nlmsghdr); cut < length; cut += 4) {
        EXPECT_NE(whole.readCut(cut), (KernelLink{"red", 10})) << cut;
    }
    EXPECT_EQ(whole.readCut(length), (KernelLink{"red", 10}));
}

namespace {
class KernelLinksOfThisHost : public TestSupport::OwnNetwork {};
} // namespace

TEST_F(KernelLinksOfThisHost, AreFoundByIndex) {
    TestSupport::ip("link add index 7000 name west type veth peer name east");
    EXPECT_EQ(OvixFpm::linkOfIndex(7000), (KernelLink{"west", 0}));
    EXPECT_EQ(OvixFpm::linkOfIndex(1), (KernelLink{"lo", 0}));
    EXPECT_FALSE(OvixFpm::linkOfIndex(0));
    EXPECT_FALSE(OvixFpm::linkOfIndex(7001));
    EXPECT_FALSE(OvixFpm::linkOfIndex(0xffffffff));
}

TEST_F(KernelLinksOfThisHost, VrfDevicesAreFoundByTheirTables) {
    EXPECT_TRUE(OvixFpm::vrfNamesByTable().empty());
    try {
        TestSupport::ip("link add index 7000 name red type vrf table 10 2>/dev/null");
    } catch (const std::runtime_error&) {
        GTEST_SKIP() << "this kernel has no VRF devices";
    }
    TestSupport::ip("link add blue type vrf table 4000000000");
    EXPECT_EQ(OvixFpm::vrfNamesByTable(),
              (std::map<std::uint32_t, std::string>{{10, "red"}, {4000000000, "blue"}}));
    EXPECT_EQ(OvixFpm::linkOfIndex(7000), (KernelLink{"red", 10}));
    TestSupport::ip("link del red");
    EXPECT_EQ(OvixFpm::vrfNamesByTable(),
              (std::map<std::uint32_t, std::string>{{4000000000, "blue"}}));
}

} // namespace KernelLinksTest
