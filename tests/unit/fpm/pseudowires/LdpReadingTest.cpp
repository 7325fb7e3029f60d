#include "pseudowires/LdpReading.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "SourceDir.h"

namespace LdpReadingTest {

namespace {

using L2::Pseudowire;
using OvixFpm::readLdp;
using State = Pseudowire::State;

std::string recorded(const std::string& name) {
    const std::ifstream file(std::string(TestSupport::sourceDir()) + "/tests/data/ldp/" + name);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// The recording of pseudowires that are up, with a text in it replaced.
std::string changed(const std::string& from, const std::string& to) {
    std::string text = recorded("signalled.txt");
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

/// The one with a circuit and both labels.
Pseudowire red(const std::string& answers) {
    const auto all = readLdp(answers);
    EXPECT_TRUE(all) << (all ? "" : all.refused().what);
    for (const Pseudowire& pseudowire : all ? all.value() : std::vector<Pseudowire>()) {
        if (pseudowire.name == "RED/mpw0") {
            return pseudowire;
        }
    }
    ADD_FAILURE() << "there is no RED/mpw0";
    return {};
}

} // namespace

TEST(LdpReading, APseudowireThatIsUpHasEverything) {
    Pseudowire expected;
    expected.name = "RED/mpw0";
    expected.circuit = "ac0";
    expected.neighbour = Lumo::IpGenAddr::fromText("10.255.0.4");
    expected.id = 100;
    expected.localLabel = 21;
    expected.remoteLabel = 21;
    expected.localMtu = expected.remoteMtu = 1500;
    expected.state = State::up;
    EXPECT_EQ(red(recorded("signalled.txt")), expected);
}

TEST(LdpReading, EveryMemberPseudowireSaysWhyItIsDown) {
    const auto all = readLdp(recorded("signalled.txt"));
    ASSERT_TRUE(all);
    std::vector<std::pair<std::string, State>> states;
    for (const Pseudowire& pseudowire : all.value()) {
        states.emplace_back(pseudowire.name, pseudowire.state);
    }
    EXPECT_EQ(states,
              (std::vector<std::pair<std::string, State>>{{"ALONE/mpw2", State::noRemoteLabel},
                                                          {"BARE/mpw6", State::noCircuit},
                                                          {"MANY/mpw4", State::notPointToPoint},
                                                          {"MANY/mpw5", State::notPointToPoint},
                                                          {"PLAIN/mpw1", State::up},
                                                          {"RED/mpw0", State::up},
                                                          {"SHORT/mpw3", State::up}}));
    EXPECT_FALSE(all.value()[4].controlWord);
}

TEST(LdpReading, WithdrawnLabelsAreGone) {
    const Pseudowire found = red(recorded("withdrawn.txt"));
    EXPECT_EQ(found.state, State::noRemoteLabel);
    EXPECT_EQ(found.remoteLabel, 0U);
}

TEST(LdpReading, WhatTheEndsDoNotAgreeOnKeepsItDown) {
    EXPECT_EQ(red(changed("\"remoteIfMtu\":1500", "\"remoteIfMtu\":9000")).state,
              State::mtuMismatch);
    EXPECT_EQ(
        red(changed("\"remoteVcType\":\"Ethernet\"", "\"remoteVcType\":\"Eth Tagged\"")).state,
        State::otherType);
    const Pseudowire word = red(changed("\"remoteControlWord\":1", "\"remoteControlWord\":0"));
    EXPECT_EQ(word.state, State::down);
    EXPECT_EQ(word.why, "one end alone uses the control word");
}

TEST(LdpReading, AnImpossibleLabelIsNoneAndTheOthersStay) {
    for (const char* label : {"3", "15", "1048576", "4294967312", "-5"}) {
        const std::string answers =
            changed("\"remoteLabel\":21", std::string("\"remoteLabel\":") + label);
        EXPECT_EQ(red(answers).state, State::invalidLabel) << label;
        EXPECT_EQ(readLdp(answers).value()[4].state, State::up);
    }
}

TEST(LdpReading, TheDaemonsOwnReasonIsKept) {
    std::string answers = changed("\"lastFailureReason\":\"No Error\"",
                                  "\"lastFailureReason\":\"remote label withdrawn\"");
    const std::size_t status = answers.rfind("\"vpnName\":\"RED\",\n    \"status\":\"up\"");
    ASSERT_NE(status, std::string::npos);
    answers.replace(answers.find("\"up\"", status), 4, "\"down\"");
    EXPECT_EQ(red(answers).state, State::down);
    EXPECT_EQ(red(answers).why, "remote label withdrawn");
}

TEST(LdpReading, TheNeighboursAddressesOnLinksAreThoseOfItsHellos) {
    EXPECT_TRUE(red(recorded("signalled.txt")).adjacent.empty());
    const Pseudowire found = red(changed("\"lsrId\":\"10.255.0.3\"", "\"lsrId\":\"10.255.0.4\""));
    ASSERT_EQ(found.adjacent.size(), 1U);
    EXPECT_EQ(found.adjacent[0].text(), "10.2.1.2");
}

TEST(LdpReading, ATunnelMayLeadToAnotherAddressThanTheLsrId) {
    std::string answers = recorded("signalled.txt");
    const std::size_t at = answers.find("  pw-id 100");
    ASSERT_NE(at, std::string::npos);
    answers.insert(at, "  neighbor address 192.0.2.4\n");
    EXPECT_EQ(red(answers).neighbour.text(), "192.0.2.4");
}

TEST(LdpReading, AnswersThatAreCutShortAreRefusedAsAWhole) {
    const std::string whole = recorded("signalled.txt");
    for (std::size_t size = 0; size + 4 < whole.size(); size += 7) {
        EXPECT_FALSE(readLdp(whole.substr(0, size))) << size;
    }
}

TEST(LdpReading, AnswersOfAnotherVersionAreRefusedAsAWhole) {
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {"\"remoteLabel\":21", "\"remoteLabel\":\"21\""},
             {"\"remoteLabel\":21", "\"outLabel\":21"},
             {"\"remoteLabel\":21", "\"remoteLabel\":21.5"},
             {"\"localIfMtu\":1500", "\"localIfMtu\":\"1500\""},
             {"\"interfaces\":{", "\"links\":{"},
             {"\"status\":\"up\"\n  }\n}", "\"state\":1\n  }\n}"},
             {"  pw-id 100", "  pw-id many"},
             {"  pw-id 100", "  pw-id 4294967396"}}) {
        EXPECT_FALSE(readLdp(changed(from, to))) << to;
    }
    EXPECT_FALSE(readLdp("[]\n{}\n{}\nend\n"));
    EXPECT_TRUE(readLdp("{}\n{}\n{\"interfaces\":{}}\nend\n"));
}

} // namespace LdpReadingTest
