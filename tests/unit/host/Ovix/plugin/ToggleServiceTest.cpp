#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "Ovix/plugin/OvixPlugin.h"

namespace ToggleServiceTest {

namespace {

using Ovix::ToggleService;

class Toggles : public testing::Test {
  protected:
    ~Toggles() override { service.sourceIs({}); }
    ToggleService& service = ToggleService::instance();
};

TEST_F(Toggles, HaveTheirDefaultsWithoutASource) {
    EXPECT_TRUE(service.toggleEnabled("MvpnLib.json", "MvpnSfe", true));
    EXPECT_FALSE(service.toggleEnabled("MvpnLib.json", "MvpnSfe", false));
}

TEST_F(Toggles, AreAskedOfTheSourceByFileNameAndDefault) {
    std::string asked;
    bool answer = false;
    service.sourceIs([&](std::string_view file, std::string_view toggle, bool byDefault) {
        asked = std::string(file) + " " + std::string(toggle) + (byDefault ? " on" : " off");
        return answer;
    });
    for (const bool byDefault : {true, false}) {
        answer = !byDefault;
        EXPECT_EQ(service.toggleEnabled("MvpnLib.json", "MvpnSfe", byDefault), answer);
        EXPECT_EQ(asked, std::string("MvpnLib.json MvpnSfe ") + (byDefault ? "on" : "off"));
    }
}

TEST_F(Toggles, ThatTheSourceLeavesOpenHaveTheirDefaults) {
    service.sourceIs([](std::string_view, std::string_view, bool byDefault) { return byDefault; });
    EXPECT_TRUE(service.toggleEnabled("a", "b", true));
    EXPECT_FALSE(service.toggleEnabled("a", "b", false));
}

TEST_F(Toggles, ComeFromTheLatestSource) {
    service.sourceIs([](std::string_view, std::string_view, bool) { return false; });
    service.sourceIs([](std::string_view, std::string_view, bool) { return true; });
    EXPECT_TRUE(service.toggleEnabled("a", "b", false));
    service.sourceIs({});
    EXPECT_FALSE(service.toggleEnabled("a", "b", false));
}

TEST_F(Toggles, AreOneServicePerProcess) {
    ToggleService::instance().sourceIs(
        [](std::string_view, std::string_view, bool) { return true; });
    EXPECT_EQ(&ToggleService::instance(), &service);
    EXPECT_TRUE(service.toggleEnabled("a", "b", false));
}

TEST_F(Toggles, PassOnWhatTheSourceThrows) {
    service.sourceIs(
        [](std::string_view, std::string_view, bool) -> bool { throw std::runtime_error("no"); });
    EXPECT_THROW(service.toggleEnabled("a", "b", true), std::runtime_error);
}

} // namespace

} // namespace ToggleServiceTest
