#include "pseudowires/LdpWatch.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <sstream>

#include "LocalTables.h"
#include "PublishingTesting.h"
#include "SourceDir.h"

namespace LdpWatchTest {

namespace {

using L2::Pseudowire;
using namespace std::chrono_literals;
using State = Pseudowire::State;

class LdpWatch : public testing::Test {
  protected:
    LdpWatch() {
        std::string name = testing::TempDir() + "ovix-ldp-XXXXXX";
        directory = mkdtemp(name.data());
        std::ofstream(directory / "vtysh")
            << "#!/bin/sh\ncd " << directory.string() << "\necho \"$@\" > asked\n"
            << "mv once now 2> /dev/null && exec cat now\nexec cat answers\n";
        std::filesystem::permissions(directory / "vtysh", std::filesystem::perms::owner_all);
        OvixFpm::LdpWatch::Settings settings;
        settings.vtysh = (directory / "vtysh").string();
        settings.socketDirectory = "/run/of-ldpd";
        settings.every = 5ms;
        settings.keptFor = keptFor;
        watch.emplace(routes, settings,
                      [this](std::string_view, const std::string& line) { log += line + "\n"; });
    }
    ~LdpWatch() override { std::filesystem::remove_all(directory); }

    static std::string recorded(const std::string& name) {
        const std::ifstream file(std::string(TestSupport::sourceDir()) + "/tests/data/ldp/" + name);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
    /// What ldpd answers from now on.
    void say(const std::string& text) const {
        std::ofstream(directory / "new") << text;
        std::filesystem::rename(directory / "new", directory / "answers");
    }
    /// What it answers once.
    void sayOnce(const std::string& text) const {
        std::ofstream(directory / "new") << text;
        std::filesystem::rename(directory / "new", directory / "once");
    }
    /// What it answers while the pseudowires are not forwarding.
    static std::string down() {
        std::string text = recorded("signalled.txt");
        const std::string up = "\"status\":\"up\"";
        for (std::size_t at = text.find(up); at != std::string::npos; at = text.find(up)) {
            text.replace(at, up.size(), "\"status\":\"down\"");
        }
        return text;
    }
    template <typename Condition>
    bool soon(Condition&& isMet) {
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (!isMet() && std::chrono::steady_clock::now() < end) {
            pollfd waiting{watch->descriptor(), POLLIN, 0};
            poll(&waiting, 1, std::min(watch->timeoutMs(), 20));
            watch->serve();
            tables.reader->refresh();
        }
        return isMet();
    }
    State red() const {
        for (const Pseudowire& pseudowire : L2::Pseudowires::read(*tables.reader)) {
            if (pseudowire.name == "RED/mpw0") {
                return pseudowire.state;
            }
        }
        return {};
    }
    /// The labels that lead to a circuit.
    std::vector<std::uint32_t> labels() const {
        std::vector<std::uint32_t> all;
        const auto table = static_cast<std::size_t>(Mpls::TableId::pseudowireLfib);
        tables.reader->forEach(
            table, [&](std::uint32_t label, Tessel::TableRef) { all.push_back(label); });
        return all;
    }

    static constexpr std::chrono::milliseconds keptFor{300};
    std::filesystem::path directory;
    TestSupport::LocalTables tables;
    PublishingTesting::MadeUpInterfaces interfaces;
    Mpls::SharedPublisher shared{tables.publisher};
    OvixFpm::RoutePublisher routes{shared, interfaces};
    std::string log;
    std::optional<OvixFpm::LdpWatch> watch;
};

} // namespace

TEST_F(LdpWatch, BothDirectionsArePublishedAndTakenBackTogether) {
    say(recorded("signalled.txt"));
    ASSERT_TRUE(soon([&] { return red() == State::up; }));
    EXPECT_EQ(labels(), (std::vector<std::uint32_t>{20, 21, 22}));
    EXPECT_NE(log.find("pseudowire RED/mpw0 to 10.255.0.4: up\n"), std::string::npos) << log;
    const std::uint64_t generation = tables.reader->generation();
    say(recorded("withdrawn.txt"));
    ASSERT_TRUE(soon([&] { return red() == State::noRemoteLabel; }));
    EXPECT_EQ(tables.reader->generation(), generation + 1);
    EXPECT_TRUE(labels().empty());
    say("{}\n{}\n{\"interfaces\":{}}\nend\n");
    ASSERT_TRUE(soon([&] { return red() == State{}; }));
    EXPECT_NE(log.find("pseudowire RED/mpw0 is removed\n"), std::string::npos) << log;
}

TEST_F(LdpWatch, APseudowireIsDownWhenTwoAnswersSaySo) {
    say(recorded("signalled.txt"));
    ASSERT_TRUE(soon([&] { return red() == State::up; }));
    const std::uint64_t generation = tables.reader->generation();
    sayOnce(down()); // while its tunnel moves
    for (int i = 0; i < 3; ++i) {
        std::filesystem::remove(directory / "asked");
        ASSERT_TRUE(soon([&] { return std::filesystem::exists(directory / "asked"); }));
    }
    EXPECT_FALSE(std::filesystem::exists(directory / "once"));
    EXPECT_EQ(tables.reader->generation(), generation);
    say(down());
    ASSERT_TRUE(soon([&] { return red() == State::down; }));
    EXPECT_TRUE(labels().empty());
}

TEST_F(LdpWatch, WhatStaysTheSameIsNotPublishedAgain) {
    say(recorded("signalled.txt"));
    ASSERT_TRUE(soon([&] { return red() == State::up; }));
    const std::uint64_t generation = tables.reader->generation();
    for (int i = 0; i < 3; ++i) {
        std::filesystem::remove(directory / "asked");
        ASSERT_TRUE(soon([&] { return std::filesystem::exists(directory / "asked"); }));
    }
    EXPECT_EQ(tables.reader->generation(), generation);
}

TEST_F(LdpWatch, LdpdIsAskedAtItsSocket) {
    say("");
    ASSERT_TRUE(soon([&] { return !log.empty(); }));
    std::string asked;
    std::getline(std::ifstream(directory / "asked"), asked);
    EXPECT_EQ(asked, "-d ldpd --vty_socket /run/of-ldpd -c show l2vpn atom binding json -c show "
                     "l2vpn atom vc json -c show mpls ldp discovery detail json -c show "
                     "running-config");
}

TEST_F(LdpWatch, WithoutAnswersPseudowiresStayForAWhile) {
    say(recorded("signalled.txt"));
    ASSERT_TRUE(soon([&] { return red() == State::up; }));
    const auto last = std::chrono::steady_clock::now();
    std::filesystem::remove(directory / "answers");
    ASSERT_TRUE(soon([&] { return !log.ends_with("up\n"); }));
    ASSERT_TRUE(soon([&] { return red() != State::up; }));
    EXPECT_EQ(red(), State::noDaemon);
    EXPECT_GE(std::chrono::steady_clock::now() - last, keptFor - 100ms);
    EXPECT_TRUE(labels().empty());
    say(recorded("signalled.txt"));
    ASSERT_TRUE(soon([&] { return red() == State::up; }));
    EXPECT_NE(log.find("ldpd answers again\n"), std::string::npos) << log;
}

TEST_F(LdpWatch, TheNextListenerTakesOverWhatTheLastOneLeft) {
    say(recorded("signalled.txt"));
    ASSERT_TRUE(soon([&] { return red() == State::up; }));
    OvixFpm::LdpWatch::Settings settings;
    settings.vtysh = (directory / "vtysh").string();
    settings.every = 5ms;
    watch.emplace(routes, settings, [](std::string_view, const std::string&) {});
    say(recorded("withdrawn.txt"));
    ASSERT_TRUE(soon([&] { return red() == State::noRemoteLabel; }));
    EXPECT_TRUE(labels().empty());
}

} // namespace LdpWatchTest
