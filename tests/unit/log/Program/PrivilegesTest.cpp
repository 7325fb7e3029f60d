#include "Program/Privileges.h"

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace PrivilegesTest {

namespace {

/// Whether it holds in a process of its own, which has given up all but CAP_NET_RAW.
bool holdsWithout(const std::function<bool()>& holds) {
    const pid_t child = fork();
    if (child == 0) {
        OvixLog::keepCapabilities({CAP_NET_RAW});
        _exit(holds() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class Privileges : public ::testing::Test {
  protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "has no capabilities to give up";
        }
    }
};

} // namespace

TEST_F(Privileges, OfOthersAreGone) {
    EXPECT_TRUE(holdsWithout([] { return setuid(1) != 0 && errno == EPERM; }));
    EXPECT_TRUE(holdsWithout([] { return chroot("/") != 0 && errno == EPERM; }));
}

TEST_F(Privileges, ThatAreKeptCanBeUsed) {
    EXPECT_TRUE(holdsWithout([] { return socket(AF_INET, SOCK_RAW, IPPROTO_ICMP) >= 0; }));
}

TEST_F(Privileges, AreGoneForProgramsThatAreExecuted) {
    EXPECT_TRUE(holdsWithout([] { return prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1; }));
    EXPECT_TRUE(holdsWithout([] { return prctl(PR_CAPBSET_READ, CAP_SYS_ADMIN, 0, 0, 0) == 0; }));
    EXPECT_TRUE(holdsWithout([] { return prctl(PR_CAPBSET_READ, CAP_NET_RAW, 0, 0, 0) == 1; }));
    EXPECT_TRUE(holdsWithout([] { return std::system("chroot / true 2>/dev/null") != 0; }));
}

} // namespace PrivilegesTest
