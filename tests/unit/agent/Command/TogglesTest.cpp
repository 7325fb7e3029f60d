#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>

#include "Command/Run.h"
#include "Ovix/plugin/OvixPlugin.h"

namespace TogglesTest {

namespace {

using namespace OvixAgent;
namespace fs = std::filesystem;

/// A directory with a configuration file and toggle files beside it.
class Toggles : public testing::Test {
  protected:
    Toggles() {
        fs::create_directory(directory);
        serve();
    }
    ~Toggles() override {
        Ovix::ToggleService::instance().sourceIs({});
        fs::remove_all(directory);
    }

    void serve(const ToggleConfig& toggles = {}) {
        AgentConfig config;
        config.toggles = toggles;
        serveToggles(config, (directory / "agent.yaml").string());
    }
    void write(const std::string& text, const char* name = "MvpnLib.json") const {
        std::ofstream(directory / name, std::ios::trunc) << text;
    }
    static bool enabled(bool byDefault, const char* toggle = "MvpnSfe") {
        return Ovix::ToggleService::instance().toggleEnabled("MvpnLib.json", toggle, byDefault);
    }
    /// What both defaults lead to when that is the same; nothing when the default decides.
    static std::optional<bool> state(const char* toggle = "MvpnSfe") {
        const bool whenOn = enabled(true, toggle);
        return whenOn == enabled(false, toggle) ? std::optional(whenOn) : std::nullopt;
    }
    /// What asking for the toggle is refused with, less the directory; "" when it is answered.
    std::string error() const {
        try {
            enabled(true);
        } catch (const std::runtime_error& refused) {
            const std::string said = refused.what();
            const std::string start = directory.string() + "/";
            return said.rfind(start, 0) == 0 ? said.substr(start.size()) : said;
        }
        return "";
    }

    const fs::path directory =
        fs::path(testing::TempDir()) / ("toggles" + std::to_string(getpid()));
};

TEST_F(Toggles, WithoutAFileTheDefaultDecides) {
    EXPECT_TRUE(enabled(true));
    EXPECT_FALSE(enabled(false));
    fs::remove_all(directory);
    EXPECT_TRUE(enabled(true));
    EXPECT_FALSE(enabled(false));
}

TEST_F(Toggles, AFileBesideTheConfigurationDecides) {
    write(R"({"MvpnSfe": false})");
    EXPECT_EQ(state(), std::optional(false));
    write(R"({"Other": 1, "MvpnSfe": true})");
    EXPECT_EQ(state(), std::optional(true));
}

TEST_F(Toggles, AFileThatDoesNotNameTheToggleLeavesItToTheDefault) {
    for (const char* text : {"{}", R"({"mvpnsfe": false})", R"({"Other": false})",
                             R"({"Nested": {"MvpnSfe": false}})"}) {
        write(text);
        EXPECT_EQ(state(), std::nullopt) << text;
    }
}

TEST_F(Toggles, AnotherFileDoesNotDecide) {
    write(R"({"MvpnSfe": false})", "OtherLib.json");
    EXPECT_EQ(state(), std::nullopt);
}

TEST_F(Toggles, AFileThatIsNoJsonObjectIsRefusedWhenItIsAskedFor) {
    for (const char* text :
         {"", "{", "{\"MvpnSfe\": false", "{\"MvpnSfe\": false}}", "[]", "false", "null",
          "\"MvpnSfe\"", "{\"MvpnSfe\": fals}", "{MvpnSfe: false}", "MvpnSfe=0"}) {
        write(text);
        EXPECT_EQ(error(), "MvpnLib.json: not a JSON object of toggles") << text;
    }
}

TEST_F(Toggles, AValueThatIsNoBooleanIsRefusedByName) {
    for (const char* value : {"1", "0", "null", "\"false\"", "[true]", "{\"on\":true}"}) {
        write(std::string("{\"MvpnSfe\": ") + value + "}");
        EXPECT_EQ(error(),
                  std::string("MvpnLib.json: MvpnSfe: ") + value + " is neither true nor false");
        EXPECT_EQ(state("Other"), std::nullopt);
    }
}

TEST_F(Toggles, AFileThatCannotBeReadIsRefused) {
    fs::create_directory(directory / "MvpnLib.json");
    EXPECT_EQ(error(), "MvpnLib.json: not a readable file");
    fs::remove(directory / "MvpnLib.json");
    fs::create_symlink("MvpnLib.json", directory / "MvpnLib.json");
    EXPECT_EQ(error(), "MvpnLib.json: not a readable file");
}

TEST_F(Toggles, TheConfigurationOverridesTheFileToggleByToggle) {
    write(R"({"MvpnSfe": false, "Second": false})");
    serve({{"MvpnLib.json", {{"MvpnSfe", true}, {"Third", false}}},
           {"OtherLib.json", {{"Second", true}}}});
    EXPECT_EQ(state(), std::optional(true));
    EXPECT_EQ(state("Second"), std::optional(false));
    EXPECT_EQ(state("Third"), std::optional(false));
    EXPECT_EQ(state("Fourth"), std::nullopt);
}

TEST_F(Toggles, AToggleOfTheConfigurationIsKnownWithoutReadingTheFile) {
    write("not JSON");
    serve({{"MvpnLib.json", {{"MvpnSfe", false}}}});
    EXPECT_EQ(state(), std::optional(false));
    EXPECT_THROW(enabled(true, "Other"), std::runtime_error);
}

TEST_F(Toggles, ThatNobodyAsksForAreRefused) {
    enabled(true);
    const auto refusal = [](const ToggleConfig& toggles) -> std::string {
        AgentConfig config;
        config.toggles = toggles;
        const auto known = checkToggles(config, "agent.yaml");
        return known ? "" : known.refused().what;
    };
    EXPECT_EQ(refusal({{"MvpnLib.json", {{"MvpnSfe", true}}}}), "");
    EXPECT_EQ(refusal({{"MvpnLib.json", {{"MvpnSef", true}}}}),
              "agent.yaml: toggles.MvpnLib.json: unknown toggle \"MvpnSef\"; did you mean "
              "\"MvpnSfe\"?");
    EXPECT_EQ(refusal({{"MvpmLib.json", {{"MvpnSfe", true}}}}),
              "agent.yaml: toggles: unknown toggle file \"MvpmLib.json\"; did you mean "
              "\"MvpnLib.json\"?");
}

TEST_F(Toggles, LieInTheWorkingDirectoryWhenTheConfigurationDoes) {
    const fs::path before = fs::current_path();
    fs::current_path(directory);
    write(R"({"MvpnSfe": false})");
    serveToggles(AgentConfig(), "agent.yaml");
    EXPECT_EQ(state(), std::optional(false));
    fs::current_path(before);
}

} // namespace

} // namespace TogglesTest
