#include "Program/ServiceManager.h"

#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "Posix/FileDescriptor.h"

namespace ServiceManagerTest {

using OvixLog::ServiceManager;
using namespace std::chrono_literals;

namespace {

using Lines = std::vector<std::string>;

/// The manager's end of the socket.
class ServiceManagers : public ::testing::Test {
  protected:
    void SetUp() override {
        const std::string name = "@ovix-service-test-" + std::to_string(getpid());
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, name.size());
        address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        ASSERT_EQ(bind(socket_.value(), reinterpret_cast<sockaddr*>(&address), size), 0);
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
    }

    /// What has been told since the last call.
    Lines told() {
        Lines all;
        std::array<char, 512> bytes;
        for (ssize_t got = 0;
             (got = recv(socket_.value(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0;) {
            all.emplace_back(bytes.data(), static_cast<std::size_t>(got));
        }
        return all;
    }

  private:
    Posix::FileDescriptor socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

} // namespace

TEST_F(ServiceManagers, HearOnceThatAProgramIsReady) {
    ServiceManager manager;
    EXPECT_EQ(told(), Lines());
    manager.isReady();
    manager.isReady();
    EXPECT_EQ(told(), Lines{"READY=1"});
    manager.isStopping();
    EXPECT_EQ(told(), Lines{"STOPPING=1"});
}

TEST_F(ServiceManagers, HearOfAStatusWhenItIsAnotherOne) {
    ServiceManager manager;
    manager.statusIs("starting");
    manager.statusIs("starting");
    manager.statusIs("two\nlines");
    EXPECT_EQ(told(), (Lines{"STATUS=starting", "STATUS=two lines"}));
}

TEST_F(ServiceManagers, HearOfReloadsOfAProgramThatIsReady) {
    ServiceManager manager;
    manager.isReloading();
    manager.hasReloaded();
    EXPECT_EQ(told(), Lines());
    manager.isReady();
    manager.isReloading();
    manager.hasReloaded();
    const Lines all = told();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[1].rfind("RELOADING=1\nMONOTONIC_USEC=", 0), 0U);
    EXPECT_EQ(all[2], "READY=1");
}

TEST_F(ServiceManagers, AreFedTwiceInTheTimeOfTheirWatchdog) {
    setenv("WATCHDOG_USEC", "2000000", 1);
    ServiceManager manager;
    const auto start = ServiceManager::Clock::now();
    manager.turn(start);
    EXPECT_EQ(told(), Lines{"WATCHDOG=1"});
    manager.turn(start + 999ms);
    EXPECT_EQ(told(), Lines());
    manager.turn(start + 1s);
    EXPECT_EQ(told(), Lines{"WATCHDOG=1"});
}

TEST_F(ServiceManagers, WithoutAWatchdogAreNotFed) {
    ServiceManager manager;
    manager.turn(ServiceManager::Clock::now());
    EXPECT_EQ(told(), Lines());
}

} // namespace ServiceManagerTest
