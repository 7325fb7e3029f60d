#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <linux/netlink.h>
#include <vector>

#include "SourceDir.h"
#include "kernel/KernelLinks.h"

namespace RecordedLinksTest {

using OvixFpm::KernelLink;

// What a kernel with VRF devices said of its links (tests/data/netlink/README.md).
namespace {

std::vector<char> recorded(const std::string& name) {
    std::ifstream file(std::string(TestSupport::sourceDir()) + "/tests/data/netlink/" + name +
                           ".bin",
                       std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The links that the messages tell of.
std::vector<KernelLink> linksOf(const std::vector<char>& messages) {
    std::vector<KernelLink> links;
    for (std::size_t at = 0; at < messages.size();) {
        nlmsghdr header{};
        std::memcpy(&header, messages.data() + at, sizeof header);
        std::vector<nlmsghdr> aligned(header.nlmsg_len / sizeof(nlmsghdr) + 1);
        std::memcpy(aligned.data(), messages.data() + at, header.nlmsg_len);
        if (auto link = OvixFpm::readLink(aligned.front())) {
            links.push_back(*std::move(link));
        }
        at += NLMSG_ALIGN(header.nlmsg_len);
    }
    return links;
}

} // namespace

TEST(RecordedLinks, VrfDevicesHaveTheirTablesAndInterfacesInAVrfNone) {
    EXPECT_EQ(
        linksOf(recorded("links")),
        (std::vector<KernelLink>{
            {"lo", 0}, {"red", 10}, {"blue", 1000}, {"west0p", 0}, {"west0", 0}, {"red0", 0}}));
}

TEST(RecordedLinks, OneVrfDevice) {
    EXPECT_EQ(linksOf(recorded("vrf_link")), (std::vector<KernelLink>{{"red", 10}}));
}

} // namespace RecordedLinksTest
