#include "Live/links/LinkTable.h"

#include <gtest/gtest.h>
#include <string>

namespace LinkTableTest {

namespace {

using OvixAgent::LinkEvents;
using OvixAgent::LinkState;
using OvixAgent::LinkTable;
using OvixAgent::NeighbourState;

LinkState linkOf(std::uint32_t index, const std::string& name, std::uint32_t mtu = 1500) {
    return {index, name, {}, mtu, true, true};
}

NeighbourState neighbourOf(std::uint32_t link, std::uint8_t host) {
    return {link,
            Lumo::IpGenAddr::fromText("192.0.2." + std::to_string(host)),
            {},
            NeighbourState::Reach::asked};
}

class LinkTableTest : public testing::Test {
  protected:
    LinkEvents events() {
        LinkEvents all;
        all.linkIs = [this](const LinkState& link) { reported += "+" + link.name; };
        all.linkDel = [this](const LinkState& link) { reported += "-" + link.name; };
        all.neighbourIs = [this](const NeighbourState& it) { reported += "+" + host(it); };
        all.neighbourDel = [this](const NeighbourState& it) { reported += "-" + host(it); };
        return all;
    }
    static std::string host(const NeighbourState& neighbour) {
        return std::to_string(neighbour.address.bytes()[3]);
    }

    std::string reported;
    LinkTable table{events()};
};

} // namespace

TEST_F(LinkTableTest, ReportsEqualValuesOnce) {
    table.linkIs(linkOf(1, "a"));
    table.linkIs(linkOf(1, "a"));
    table.neighbourIs(neighbourOf(1, 5));
    table.neighbourIs(neighbourOf(1, 5));
    EXPECT_EQ(reported, "+a+5");
    table.linkIs(linkOf(1, "a", 9000));
    EXPECT_EQ(reported, "+a+5+a");
}

TEST_F(LinkTableTest, DeletesOnlyWhatExists) {
    table.linkDel(1);
    table.neighbourDel(neighbourOf(1, 5));
    EXPECT_EQ(reported, "");
}

TEST_F(LinkTableTest, DeletesUnconfirmedEntriesNeighboursFirst) {
    table.linkIs(linkOf(1, "a"));
    table.linkIs(linkOf(2, "b"));
    table.neighbourIs(neighbourOf(1, 5));
    table.neighbourIs(neighbourOf(2, 6));
    reported.clear();
    table.startConfirming();
    table.linkIs(linkOf(1, "a"));
    table.neighbourIs(neighbourOf(1, 5));
    table.delUnconfirmed();
    EXPECT_EQ(reported, "-6-b");
    table.delUnconfirmed();
    EXPECT_EQ(reported, "-6-b");
}

TEST_F(LinkTableTest, KeepsEntriesAddedWhileConfirming) {
    table.startConfirming();
    table.linkIs(linkOf(3, "c"));
    table.delUnconfirmed();
    EXPECT_EQ(reported, "+c");
}

} // namespace LinkTableTest
