#include <gtest/gtest.h>

#include "ConfigTesting.h"

namespace ConfigPseudowiresTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

/// Three ports in the first four lines; pseudowires from line 6 on, one per line.
std::string pseudowires(const std::vector<std::string>& items) {
    std::string text = twoPorts + "  - {name: core, mac: 02:00:00:00:00:03}\npseudowires:\n";
    for (const std::string& item : items) {
        text += "  - {" + item + "}\n";
    }
    return text;
}

const std::string red = "name: red, port: eth1, label: 500, interface: core, nexthop: 10.0.2.2";

/// That of `red` with one of its keys replaced.
std::string redWith(const std::string& key, const std::string& value) {
    const std::size_t at = red.find(key + ":");
    const std::size_t end = std::min(red.find(',', at), red.size());
    return red.substr(0, at) + key + ": " + value + red.substr(end);
}

} // namespace

TEST(ConfigPseudowires, AreReadWithWhatIsLeftOutFilledIn) {
    const AgentConfig config =
        configOf(pseudowires({red, "name: blue, port: eth2, label: 1048575, control-word: false, "
                                   "interface: core, nexthop: \"2001:db8::2\", "
                                   "labels: [0, 100, 1048575]"}),
                 "t.yaml");
    ASSERT_EQ(config.pseudowires.size(), 2U);
    const PseudowireConfig& first = config.pseudowires[0].value;
    EXPECT_EQ(first.name, "red");
    EXPECT_EQ(first.port, 0U);
    EXPECT_EQ(first.label, Lumo::MplsLabel(500));
    EXPECT_TRUE(first.controlWord);
    EXPECT_EQ(first.egress, 2U);
    EXPECT_EQ(first.nexthop.text(), "10.0.2.2");
    EXPECT_TRUE(first.tunnelLabels.empty());
    EXPECT_EQ(config.pseudowires[0].line, 6U);
    const PseudowireConfig& second = config.pseudowires[1].value;
    EXPECT_EQ(second.port, 1U);
    EXPECT_EQ(second.label, Lumo::MplsLabel(1048575));
    EXPECT_FALSE(second.controlWord);
    EXPECT_EQ(second.nexthop.text(), "2001:db8::2");
    EXPECT_EQ(second.tunnelLabels,
              (std::vector<Lumo::MplsLabel>{Lumo::MplsLabel(0), Lumo::MplsLabel(100),
                                            Lumo::MplsLabel(1048575)}));
    EXPECT_EQ(config.pseudowires[1].line, 7U);
}

TEST(ConfigPseudowires, MaySpreadTheirFlows) {
    const AgentConfig config =
        configOf(pseudowires({red, "name: blue, port: eth2, label: 501, interface: core, "
                                   "nexthop: 10.0.2.2, labels: [100], entropy: true, "
                                   "flow-label: true"}),
                 "t.yaml");
    EXPECT_FALSE(config.pseudowires[0].value.entropy || config.pseudowires[0].value.flowLabel);
    EXPECT_TRUE(config.pseudowires[1].value.entropy && config.pseudowires[1].value.flowLabel);
}

TEST(ConfigPseudowires, MayBeNone) {
    EXPECT_TRUE(configOf(twoPorts, "t.yaml").pseudowires.empty());
    EXPECT_TRUE(configOf(twoPorts + "pseudowires: []\n", "t.yaml").pseudowires.empty());
}

TEST(ConfigPseudowires, ErrorsNameLineKeyAndValue) {
    const struct {
        std::vector<std::string> items;
        const char* error;
    } cases[]{
        {{"port: eth1"}, "6: pseudowires[0].name: missing"},
        {{"name: red"}, "6: pseudowires[0].port: missing"},
        {{"name: red, port: eth1"}, "6: pseudowires[0].label: missing"},
        {{"name: red, port: eth1, label: 500"}, "6: pseudowires[0].interface: missing"},
        {{"name: red, port: eth1, label: 500, interface: core"},
         "6: pseudowires[0].nexthop: missing"},
        {{red + ", entropy: true"},
         "6: pseudowires[0].entropy: an entropy label goes beneath the tunnel's labels, and labels "
         "is missing (flow-label needs no tunnel)"},
        {{red + ", flow-label: 3"}, "6: pseudowires[0].flow-label: \"3\" is not true or false"},
        {{red + ", lable: 7"},
         "6: pseudowires[0].lable: unknown key \"lable\"; did you mean \"label\"?"},
        {{redWith("name", "\"\"")},
         "6: pseudowires[0].name: pseudowire name \"\" has 0 bytes, allowed are 1 to 100"},
        {{redWith("port", "eth3")},
         "6: pseudowires[0].port: no port is named \"eth3\"; did you mean \"eth1\"?"},
        {{redWith("label", "15")},
         "6: pseudowires[0].label: label 15 is a special-purpose label, and no table holds labels "
         "0 to "
         "15 (RFC 7274)"},
        {{redWith("label", "3")},
         "6: pseudowires[0].label: label 3 (implicit null) never stands in a frame (RFC 3032 "
         "section 2.1)"},
        {{redWith("label", "1048576")},
         "6: pseudowires[0].label: label 1048576 is out of range (0..1048575)"},
        {{redWith("interface", "4")},
         "6: pseudowires[0].interface: no port is named \"4\"; known: eth1, eth2, core"},
        {{redWith("nexthop", "10.0.2")},
         "6: pseudowires[0].nexthop: \"10.0.2\" is not an IPv4 or IPv6 address"},
        {{red + ", control-word: yes"},
         "6: pseudowires[0].control-word: \"yes\" is not true or false"},
        {{red + ", labels: 100"}, "6: pseudowires[0].labels: expected a list, found \"100\""},
        {{red + ", labels: [100, 1048576]"},
         "6: pseudowires[0].labels[1]: label 1048576 is out of range (0..1048575)"},
        {{red + ", labels: [3]"},
         "6: pseudowires[0].labels[0]: label 3 (implicit null) never "
         "stands in a frame (RFC 3032 section 2.1); leave it out"},
        {{red, redWith("port", "eth2")},
         "7: pseudowires[1].name: pseudowire \"red\" is already defined at line 6"},
        {{red, redWith("name", "blue")},
         "7: pseudowires[1].port: \"eth1\" is already the attachment "
         "circuit of pseudowire \"red\" at line 6"},
        {{redWith("interface", "eth1")},
         "6: pseudowires[0].interface: \"eth1\" is the attachment "
         "circuit of pseudowire \"red\" at line 6"},
        {{redWith("interface", "eth2"),
          "name: blue, port: eth2, label: 16, interface: core, nexthop: 10.0.2.2"},
         "6: pseudowires[0].interface: \"eth2\" is the attachment circuit of pseudowire \"blue\" "
         "at line 7"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(errorOf(pseudowires(c.items)), std::string("t.yaml:") + c.error);
    }
    EXPECT_EQ(errorOf(twoPorts + "pseudowires: {}\n"),
              "t.yaml:4: pseudowires: expected a list, found a map");
}

TEST(ConfigPseudowires, ATunnelHasAtMost32Labels) {
    std::string labels = "16";
    for (int i = 1; i < 32; ++i) {
        labels += ",16";
    }
    EXPECT_EQ(errorOf(pseudowires({red + ", labels: [" + labels + "]"})), "");
    EXPECT_EQ(errorOf(pseudowires({red + ", labels: [" + labels + ",16]"})),
              "t.yaml:6: pseudowires[0].labels: 33 labels given, allowed are at most 32");
}

} // namespace ConfigPseudowiresTest
