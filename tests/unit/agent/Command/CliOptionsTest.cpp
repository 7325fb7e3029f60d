#include "Command/CliOptions.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Program/Version.h"

namespace CliOptionsTest {

using namespace OvixAgent;

namespace {

auto parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "ovix-agent");
    return parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

RunOptions runOptions(const std::vector<const char*>& arguments) {
    const auto result = parse(arguments);
    if (const auto* exit = std::get_if<CliExit>(&result)) {
        ADD_FAILURE() << exit->text;
        return {};
    }
    return std::get<RunOptions>(result);
}

CliExit exitOf(const std::vector<const char*>& arguments) {
    const auto result = parse(arguments);
    const auto* exit = std::get_if<CliExit>(&result);
    return exit != nullptr ? *exit : CliExit{-1, "accepted"};
}

} // namespace

TEST(CliOptions, ReadsEveryOption) {
    const RunOptions options =
        runOptions({"run", "c.yaml", "--in", "eth1=a.pcap", "--in", "eth2=b=c.pcap", "--out", "o",
                    "--json", "--trace", "--quiet", "--any-mac", "--plugin", "p.so"});
    EXPECT_EQ(options.config, "c.yaml");
    ASSERT_EQ(options.inputs.size(), 2U);
    EXPECT_EQ(options.inputs[0].port, "eth1");
    EXPECT_EQ(options.inputs[0].path, "a.pcap");
    EXPECT_EQ(options.inputs[1].port, "eth2");
    EXPECT_EQ(options.inputs[1].path, "b=c.pcap");
    EXPECT_EQ(options.outDirectory, "o");
    EXPECT_TRUE(options.json);
    EXPECT_TRUE(options.trace);
    EXPECT_TRUE(options.quiet);
    EXPECT_TRUE(options.anyMac);
    EXPECT_EQ(options.plugin, "p.so");
}

TEST(CliOptions, FlagsAreOffUnlessGiven) {
    const RunOptions options = runOptions({"run", "c.yaml", "--in", "e=a", "--out", "o"});
    EXPECT_FALSE(options.json);
    EXPECT_FALSE(options.trace);
    EXPECT_FALSE(options.quiet);
    EXPECT_FALSE(options.anyMac);
    EXPECT_EQ(options.plugin, "");
}

TEST(CliOptions, LinksGoDownWithALiveRunIfThatIsAskedFor) {
    EXPECT_FALSE(runOptions({"run", "c.yaml", "--live"}).carrier);
    EXPECT_TRUE(runOptions({"run", "c.yaml", "--live", "--carrier"}).carrier);
}

TEST(CliOptions, MetricsAreServedOnThisMachineUnlessAnAddressIsGiven) {
    const auto live = [](const char* address) {
        return std::vector<const char*>{"run", "c.yaml",    "--live", "--tables",
                                        "lab", "--metrics", address};
    };
    EXPECT_EQ(runOptions(live("9473")).metrics, "127.0.0.1:9473");
    EXPECT_EQ(runOptions(live("192.0.2.1:80")).metrics, "192.0.2.1:80");
    EXPECT_EQ(runOptions(live("[2001:db8::1]:65535")).metrics, "[2001:db8::1]:65535");
    EXPECT_EQ(runOptions(live("/run/ovix/lab.http")).metrics, "/run/ovix/lab.http");
    for (const char* const bad : {"", "0", "65536", "123456", "x", ":", "localhost:80", "1.2.3.4:",
                                  "1.2.3.4:-1", "2001:db8::1:80", "[1.2.3.4]:80", "[]:80"}) {
        EXPECT_NE(exitOf(live(bad)).text.find(std::string("\"") + bad + "\" is not [ADDRESS:]PORT"),
                  std::string::npos)
            << bad << ": " << exitOf(live(bad)).text;
    }
    EXPECT_EQ(exitOf({"run", "c.yaml", "--live", "--metrics", "9473"}).code, ExitCode::usage);
    EXPECT_EQ(exitOf({"run", "c.yaml", "--in", "e=a", "--out", "o", "--tables", "lab", "--metrics",
                      "9473"})
                  .code,
              ExitCode::usage);
}

TEST(CliOptions, LabelsAreAmongTheMetricsWhenTheyAreAskedForAndAtMostAThousand) {
    const auto live = [](const char* labels) {
        return std::vector<const char*>{"run", "c.yaml",    "--live", "--tables",
                                        "lab", "--metrics", "9473",   "--metrics-labels",
                                        labels};
    };
    EXPECT_EQ(runOptions(live("20")).metricsLabels, 20U);
    for (const char* const bad : {"0", "1001", "-1", "x"}) {
        EXPECT_EQ(exitOf(live(bad)).code, ExitCode::usage) << bad;
    }
    for (const char* const option : {"--metrics-labels", "--metrics-host"}) {
        const CliExit alone = exitOf({"run", "c.yaml", "--live", "--tables", "lab", option, "5"});
        EXPECT_NE(alone.text.find(std::string(option) + " requires --metrics"), std::string::npos)
            << alone.text;
    }
}

TEST(CliOptions, TheFastPathIsOnUnlessItIsSwitchedOff) {
    const std::vector<const char*> plain{"run", "c.yaml", "--in", "e=a", "--out", "o"};
    const auto with = [&plain](const char* option) {
        std::vector<const char*> all = plain;
        all.push_back(option);
        return all;
    };
    EXPECT_TRUE(runOptions(plain).fastPath);
    EXPECT_TRUE(runOptions(with("--fast-path=on")).fastPath);
    EXPECT_FALSE(runOptions(with("--fast-path=off")).fastPath);
    EXPECT_EQ(exitOf(with("--fast-path=perhaps")).code, ExitCode::usage);
}

TEST(CliOptions, ErrorsNameTheProgram) {
    EXPECT_EQ(exitOf({"run", "c.yaml", "--frob"}).text.substr(0, 12), "ovix-agent: ");
    EXPECT_EQ(exitOf({"run", "c.yaml", "--live", "--any-mac"}).code, ExitCode::usage);
    EXPECT_EQ(exitOf({"run", "c.yaml", "--in", "e=a", "--out", "o", "--carrier"}).code,
              ExitCode::usage);
    EXPECT_EQ(exitOf({"--help"}).text.substr(0, 12) == "ovix-agent: ", false);
}

TEST(CliOptions, TheConfigurationMayStandAnywhere) {
    const std::vector<const char*> orders[]{
        {"run", "c.yaml", "--in", "e=a", "f=b", "--out", "o"},
        {"run", "--in", "e=a", "f=b", "c.yaml", "--out", "o"},
        {"run", "--in", "e=a", "c.yaml", "--in", "f=b", "--out", "o"},
        {"run", "--in", "e=a", "f=b", "--out", "o", "c.yaml"},
        {"run", "--out=o", "--in=e=a", "--in=f=b", "--", "c.yaml"},
    };
    for (const auto& order : orders) {
        const RunOptions options = runOptions(order);
        EXPECT_EQ(options.config, "c.yaml");
        EXPECT_EQ(options.outDirectory, "o");
        ASSERT_EQ(options.inputs.size(), 2U);
        EXPECT_EQ(options.inputs[1].port, "f");
        EXPECT_EQ(options.inputs[1].path, "b");
    }
}

TEST(CliOptions, WrongUsageExitsWithTwoAndSaysWhatIsWrong) {
    const std::pair<std::vector<const char*>, const char*> cases[]{
        {{}, "A subcommand is required"},
        {{"walk"}, "A subcommand is required"},
        {{"run"}, "--out for a run on captures, or --live, is required"},
        {{"run", "--in", "e=a", "--out", "o"}, "CONFIG is required"},
        {{"run", "c.yaml", "--out", "o"}, "--in is required"},
        {{"run", "c.yaml", "--in", "e=a"}, "--out for a run on captures"},
        {{"run", "c.yaml", "--in", "a.pcap", "--out", "o"}, "\"a.pcap\" is not PORT=CAPTURE"},
        {{"run", "c.yaml", "--in", "=a", "--out", "o"}, "\"=a\" is not PORT=CAPTURE"},
        {{"run", "c.yaml", "--in", "e=", "--out", "o"}, "\"e=\" is not PORT=CAPTURE"},
        {{"run", "c.yaml", "--out", "o", "--in"}, "--in"},
        {{"run", "c.yaml", "d.yaml", "--in", "e=a", "--out", "o"}, "d.yaml"},
        {{"run", "c.yaml", "--in", "e=a", "--out", "o", "--fast"}, "--fast"},
        {{"run", "c.yaml", "--in", "e=a", "--out", "o", "--out", "p"}, "--out"},
    };
    for (const auto& [arguments, text] : cases) {
        const CliExit exit = exitOf(arguments);
        EXPECT_EQ(exit.code, ExitCode::usage) << text;
        EXPECT_NE(exit.text.find(text), std::string::npos) << exit.text;
    }
}

TEST(CliOptions, HelpAndVersionSucceed) {
    EXPECT_EQ(exitOf({"--version"}).code, ExitCode::success);
    EXPECT_EQ(exitOf({"--version"}).text, OvixLog::versionText("ovix-agent") + "\n");
    EXPECT_EQ(exitOf({"--help"}).code, ExitCode::success);
    EXPECT_NE(exitOf({"--help"}).text.find("run"), std::string::npos);
    const CliExit run = exitOf({"run", "--help"});
    EXPECT_EQ(run.code, ExitCode::success);
    for (const char* const option : {"CONFIG", "--in PORT=CAPTURE", "--out DIR", "--json",
                                     "--trace", "--plugin FILE", "--quiet"}) {
        EXPECT_NE(run.text.find(option), std::string::npos) << option << '\n' << run.text;
    }
}

TEST(CliOptions, ReadsEveryOptionOfExplain) {
    const auto result =
        parse({"explain", "c.yaml", "--port", "west", "label 100", "--tables", "lab", "--any-mac",
               "--json", "--html", "p.html", "--plugin", "p.so"});
    ASSERT_TRUE(std::holds_alternative<ExplainOptions>(result));
    const auto& options = std::get<ExplainOptions>(result);
    EXPECT_EQ(options.config, "c.yaml");
    EXPECT_EQ(options.frame, "label 100");
    EXPECT_EQ(options.port, "west");
    EXPECT_EQ(options.tables, "lab");
    EXPECT_TRUE(options.anyMac);
    EXPECT_TRUE(options.json);
    EXPECT_EQ(options.html, "p.html");
    EXPECT_EQ(options.plugin, "p.so");
}

TEST(CliOptions, ExplainNeedsAFrameWhichMayNameItsPort) {
    EXPECT_TRUE(std::holds_alternative<ExplainOptions>(parse({"explain", "c.yaml", "a.pcapng:1"})));
    EXPECT_EQ(exitOf({"explain", "c.yaml", "--port", "west"}).code, ExitCode::usage);
}

} // namespace CliOptionsTest
