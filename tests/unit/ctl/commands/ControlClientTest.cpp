#include "commands/ControlClient.h"

#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <thread>
#include <unistd.h>

#include "Control/ControlServer.h"

using namespace OvixCtl;
using Json = nlohmann::ordered_json;

namespace {

/// A socket at which a server answers as told.
class ControlClientTest : public testing::Test {
  protected:
    void serve(OvixAgent::ControlServer::Handler handler) {
        server_ = std::make_unique<OvixAgent::ControlServer>(path, std::move(handler));
        thread_ = std::thread([this] {
            while (!ends_) {
                pollfd wanted{server_->descriptor(), POLLIN, 0};
                poll(&wanted, 1, 10);
                server_->serve();
            }
        });
    }
    void TearDown() override {
        ends_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    std::string errorOf() {
        try {
            askAgent(path, "counters");
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    std::string path =
        std::filesystem::temp_directory_path() / ("ctl-test-" + std::to_string(getpid()));

  private:
    std::unique_ptr<OvixAgent::ControlServer> server_;
    std::thread thread_;
    std::atomic<bool> ends_ = false;
};

} // namespace

TEST_F(ControlClientTest, AnAnswerLongerThanASocketHoldsComesWhole) {
    serve([](const Json& request, Json& answer) {
        answer["asked"] = request["command"];
        answer["long"] = std::string(3'000'000, 'x');
    });
    const Json answer = askAgent(path, "counters");
    EXPECT_EQ(answer["asked"], "counters");
    EXPECT_EQ(answer["long"].get<std::string>().size(), 3'000'000U);
}

TEST_F(ControlClientTest, TheAgentsErrorIsPassedOn) {
    serve([](const Json&, Json&) { throw std::runtime_error("not today"); });
    EXPECT_EQ(errorOf(), "control socket " + path + ": not today");
}

TEST_F(ControlClientTest, AnAgentThatIsNotThereIsToldWithThePath) {
    EXPECT_EQ(errorOf(),
              "control socket " + path + ": no agent is there: No such file or directory");
    path = std::string(200, 'x');
    EXPECT_EQ(errorOf(), "control socket " + path + ": the path is too long");
}
