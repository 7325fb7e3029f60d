#include "commands/CtlOptions.h"

#include <cstdlib>
#include <gtest/gtest.h>

using namespace OvixCtl;

namespace {

using Words = std::vector<std::string>;

std::variant<CtlOptions, CtlExit> parse(const Words& words) {
    std::vector<const char*> arguments{"ovixctl"};
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    return parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}
CtlOptions options(const Words& words) {
    const auto parsed = parse(words);
    if (const auto* exit = std::get_if<CtlExit>(&parsed)) {
        ADD_FAILURE() << exit->text;
        return {};
    }
    return std::get<CtlOptions>(parsed);
}
CtlExit exitOf(const Words& words) {
    const auto parsed = parse(words);
    const auto* exit = std::get_if<CtlExit>(&parsed);
    return exit != nullptr ? *exit : CtlExit{-1, ""};
}

class CtlOptionsTest : public testing::Test {
  protected:
    void SetUp() override { unsetenv("OVIX_TABLES"); }
};

} // namespace

TEST_F(CtlOptionsTest, EachCommandIsKnown) {
    const std::pair<Words, Command> cases[]{
        {{"lfib", "load", "f"}, Command::lfibLoad},
        {{"lfib", "diff", "-"}, Command::lfibDiff},
        {{"lfib", "add", "1", "dev", "a"}, Command::lfibAdd},
        {{"lfib", "replace", "1", "dev", "a"}, Command::lfibReplace},
        {{"lfib", "del", "1"}, Command::lfibDel},
        {{"lfib", "show"}, Command::lfibShow},
        {{"lfib", "watch", "--count", "3"}, Command::lfibWatch},
        {{"counters", "show"}, Command::countersShow},
        {{"counters", "clear"}, Command::countersClear},
        {{"completion", "bash"}, Command::completion},
    };
    for (const auto& [words, command] : cases) {
        EXPECT_EQ(options(words).command, command) << words[0] << " " << words[1];
    }
}

TEST_F(CtlOptionsTest, GlobalOptionsStandBeforeOrAfterTheCommand) {
    for (const Words& words : {Words{"--json", "--tables", "t", "lfib", "show", "transit", "5"},
                               Words{"lfib", "--json", "show", "transit", "5", "--tables", "t"},
                               Words{"lfib", "show", "--tables=t", "transit", "--json", "5"}}) {
        const CtlOptions found = options(words);
        EXPECT_TRUE(found.json);
        EXPECT_EQ(found.tables, "t");
        EXPECT_EQ(found.words, (Words{"transit", "5"}));
    }
}

TEST_F(CtlOptionsTest, TheTablesAreNamedByTheOptionElseTheEnvironmentElseOvix) {
    EXPECT_EQ(options({"lfib", "show"}).tables, "ovix");
    setenv("OVIX_TABLES", "mine", 1);
    EXPECT_EQ(options({"lfib", "show"}).tables, "mine");
    EXPECT_EQ(options({"lfib", "show", "--tables", "other"}).tables, "other");
}

TEST_F(CtlOptionsTest, TheWordsOfARouteMayBeCalledLikeCommands) {
    EXPECT_EQ(options({"lfib", "add", "5", "vrf", "show", "dev", "lfib"}).words,
              (Words{"5", "vrf", "show", "dev", "lfib"}));
}

TEST_F(CtlOptionsTest, AWrongCommandLineIsAUsageError) {
    for (const Words& words :
         {Words{}, Words{"lfib"}, Words{"lfib", "dance"}, Words{"lfib", "load"},
          Words{"lfib", "add"}, Words{"lfib", "show", "a", "1", "2"}, Words{"--frob"},
          Words{"lfib", "show", "--tables", "a/b"}, Words{"lfib", "watch", "--count", "x"},
          Words{"counters", "show", "1", "2"}}) {
        const CtlExit exit = exitOf(words);
        EXPECT_EQ(exit.code, ExitCode::usage);
        EXPECT_EQ(exit.text.rfind("ovixctl: ", 0), 0U) << exit.text;
    }
}

TEST_F(CtlOptionsTest, HelpTellsTheKeysOfTheJson) {
    EXPECT_EQ(exitOf({"--help"}).code, ExitCode::success);
    EXPECT_NE(exitOf({"lfib", "show", "--help"}).text.find("\"useBackups\""), std::string::npos);
    EXPECT_EQ(exitOf({"--version"}).text, "ovixctl 0.1.0\n");
}
