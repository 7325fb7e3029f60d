#include <cstdlib>
#include <gtest/gtest.h>

#include "Program/Version.h"
#include "commands/Command.h"

namespace CommandLineTest {

using namespace OvixCtl;

namespace {

using Words = std::vector<std::string>;

std::variant<Request, EarlyExit> parse(const Words& words) {
    std::vector<const char*> arguments{"ovixctl"};
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    return parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}
Request requestOf(const Words& words) {
    const auto parsed = parse(words);
    if (const auto* exit = std::get_if<EarlyExit>(&parsed)) {
        ADD_FAILURE() << exit->text;
        return {};
    }
    return std::get<Request>(parsed);
}
EarlyExit exitOf(const Words& words) {
    const auto parsed = parse(words);
    const auto* exit = std::get_if<EarlyExit>(&parsed);
    return exit != nullptr ? *exit : EarlyExit{-1, ""};
}

class CommandLineTest : public testing::Test {
  protected:
    void SetUp() override { unsetenv("OVIX_TABLES"); }
};

} // namespace

TEST_F(CommandLineTest, EachCommandIsKnownByGroupAndName) {
    const Words cases[]{{"lfib", "load", "f"},
                        {"lfib", "diff", "-"},
                        {"lfib", "add", "1", "dev", "a"},
                        {"lfib", "replace", "1", "dev", "a"},
                        {"lfib", "del", "1"},
                        {"lfib", "show"},
                        {"lfib", "watch", "--count", "3"},
                        {"counters", "show"},
                        {"counters", "clear"},
                        {"completion", "bash"},
                        {"completion", "zsh"},
                        {"drops", "show"},
                        {"port", "show"},
                        {"neighbour", "show"},
                        {"route", "show", "red"},
                        {"fec", "show"},
                        {"pseudowire", "show"},
                        {"vrf", "show"},
                        {"tables", "repair"},
                        {"trace", "start"},
                        {"trace", "stop"}};
    for (const Words& words : cases) {
        const Request request = requestOf(words);
        ASSERT_NE(request.command, nullptr) << words[0] << " " << words[1];
        EXPECT_EQ(Words({request.command->group, request.command->name}),
                  Words({words[0], words[1]}));
    }
    const Words alone[]{
        {"status"}, {"explain", "00"}, {"bundle", "f"}, {"what-if", "link east down"}};
    for (const Words& words : alone) { // have no names beside those of their groups
        EXPECT_EQ(std::string(requestOf(words).command->group), words[0]);
    }
    EXPECT_EQ(std::size(cases) + std::size(alone), allCommands().size());
    EXPECT_EQ(requestOf(cases[6]).count, 3U);
}

TEST_F(CommandLineTest, GlobalOptionsStandBeforeOrAfterTheCommand) {
    for (const Words& words : {Words{"--json", "--tables", "t", "lfib", "show", "transit", "5"},
                               Words{"lfib", "--json", "show", "transit", "5", "--tables", "t"},
                               Words{"lfib", "show", "--tables=t", "transit", "--json", "5"}}) {
        const Request found = requestOf(words);
        EXPECT_TRUE(found.json);
        EXPECT_EQ(found.tables, "t");
        EXPECT_EQ(found.words, (Words{"transit", "5"}));
    }
}

TEST_F(CommandLineTest, TheTablesAreNamedByTheOptionElseTheEnvironmentElseOvix) {
    EXPECT_EQ(requestOf({"lfib", "show"}).tables, "ovix");
    setenv("OVIX_TABLES", "mine", 1);
    EXPECT_EQ(requestOf({"lfib", "show"}).tables, "mine");
    EXPECT_EQ(requestOf({"lfib", "show", "--tables", "other"}).tables, "other");
}

TEST_F(CommandLineTest, TheWordsOfARouteMayBeCalledLikeCommands) {
    EXPECT_EQ(requestOf({"lfib", "add", "5", "vrf", "show", "dev", "lfib"}).words,
              (Words{"5", "vrf", "show", "dev", "lfib"}));
}

TEST_F(CommandLineTest, AWrongCommandLineIsAUsageError) {
    for (const Words& words :
         {Words{}, Words{"lfib"}, Words{"lfib", "dance"}, Words{"lfib", "load"},
          Words{"lfib", "add"}, Words{"lfib", "show", "a", "1", "2", "3", "4"}, Words{"--frob"},
          Words{"lfib", "show", "--tables", "a/b"}, Words{"lfib", "watch", "--count", "x"},
          Words{"counters", "show", "1", "2"}}) {
        const EarlyExit exit = exitOf(words);
        EXPECT_EQ(exit.code, ExitCode::usage);
        EXPECT_EQ(exit.text.rfind("ovixctl: ", 0), 0U) << exit.text;
    }
}

TEST_F(CommandLineTest, AnUnknownCommandIsNamedWithASuggestion) {
    EXPECT_EQ(exitOf({"lfb", "show"}).text,
              "ovixctl: unknown command \"lfb\"; did you mean \"lfib\"?\n");
    EXPECT_EQ(exitOf({"--tables", "x", "lfib", "shwo"}).text,
              "ovixctl: unknown command \"shwo\"; did you mean \"show\"?\n");
    EXPECT_EQ(exitOf({"counters", "dance"}).text,
              "ovixctl: unknown command \"dance\"; known: clear, show\n");
}

TEST_F(CommandLineTest, ErrorsAreJsonWhereOutputIs) {
    EXPECT_EQ(exitOf({"--json", "lfb"}).text,
              "{\"error\":\"unknown command \\\"lfb\\\"; did you mean \\\"lfib\\\"?\"}\n");
    EXPECT_EQ(exitOf({"lfib", "show", "--json", "--tables", "a/b"}).text.rfind("{\"error\":", 0),
              0U);
}

TEST_F(CommandLineTest, AWatchOfNoChangesIsRefused) {
    EXPECT_EQ(exitOf({"lfib", "watch", "--count", "0"}).code, ExitCode::usage);
    EXPECT_EQ(requestOf({"lfib", "watch"}).count, ~std::uint64_t{0});
}

TEST_F(CommandLineTest, UsageShowsTheWordsOfACommand) {
    EXPECT_NE(exitOf({"lfib", "show", "--help"})
                  .text.find("show [OPTIONS] [TABLE] [LABEL] [owner OWNER]\n"),
              std::string::npos);
    EXPECT_NE(exitOf({"counters", "show", "--help"}).text.find("show [OPTIONS] [LABEL]\n"),
              std::string::npos);
}

TEST_F(CommandLineTest, HelpListsTheKeysOfTheJson) {
    EXPECT_EQ(exitOf({"--help"}).code, ExitCode::success);
    EXPECT_NE(exitOf({"lfib", "show", "--help"}).text.find("\"useBackups\""), std::string::npos);
    EXPECT_EQ(exitOf({"--version"}).text, OvixLog::versionText("ovixctl") + "\n");
}

TEST_F(CommandLineTest, HelpNamesTheTablesOfTheProgram) {
    for (const Command& command : allCommands()) {
        const std::string help = exitOf({command.group, command.name, "--help"}).text;
        EXPECT_EQ(help.find('@'), std::string::npos) << help;
    }
    EXPECT_NE(exitOf({"lfib", "add", "--help"}).text.find("evpn-etree-leaf-label"),
              std::string::npos);
}

} // namespace CommandLineTest
