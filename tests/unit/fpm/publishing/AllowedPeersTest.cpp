#include "publishing/AllowedPeers.h"

#include <future>
#include <thread>

#include "FpmServerTesting.h"
#include "Stranger.h"
#include "kernel/PeerUser.h"

namespace AllowedPeersTest {

namespace {

using namespace PublishingTesting;
using OvixFpm::AllowedPeers;
using OvixFpm::ListenAddress;
using OvixFpm::peerUser;
using Posix::FileDescriptor;

/// A socket that listens on loopback.
class Listening {
  public:
    std::uint16_t port() const noexcept { return port_; }
    FileDescriptor accept() const {
        pollfd place{socket_.value(), POLLIN, 0};
        EXPECT_EQ(poll(&place, 1, 5000), 1);
        return FileDescriptor(accept4(socket_.value(), nullptr, nullptr, SOCK_CLOEXEC));
    }

  private:
    std::uint16_t port_ = freePort();
    FileDescriptor socket_ =
        ListenAddress::fromText("127.0.0.1:" + std::to_string(port_)).value().listen();
};

/// Connects as user nobody, and returns what the other end says then: 1 when it closes at once.
int strangerAt(std::uint16_t port, bool stays) {
    return TestSupport::asNobody([port, stays] {
        const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in address = loopback(port);
        if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            return 100;
        }
        char byte = 0;
        return stays && recv(socket, &byte, 1, 0) <= 0 ? 1 : 2;
    });
}

} // namespace

TEST(PeerUser, IsTheOwnerOfTheOtherEnd) {
    const Listening here;
    const Zebra zebra(here.port());
    EXPECT_EQ(peerUser(here.accept()), geteuid());
}

TEST(PeerUser, IsFoundForIpv6) {
    const FileDescriptor listening(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    socklen_t size = sizeof address;
    if (bind(listening.value(), reinterpret_cast<sockaddr*>(&address), size) != 0) {
        GTEST_SKIP() << "no IPv6";
    }
    ASSERT_EQ(listen(listening.value(), 1), 0);
    getsockname(listening.value(), reinterpret_cast<sockaddr*>(&address), &size);
    const FileDescriptor zebra(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(connect(zebra.value(), reinterpret_cast<sockaddr*>(&address), size), 0);
    const FileDescriptor accepted(accept(listening.value(), nullptr, nullptr));
    EXPECT_EQ(peerUser(accepted), geteuid());
}

TEST(PeerUser, IsUnsetOnceTheOtherEndIsClosed) {
    const Listening here;
    Zebra zebra(here.port());
    const FileDescriptor accepted = here.accept();
    zebra.end();
    EXPECT_EQ(peerUser(accepted), std::nullopt);
    EXPECT_EQ(peerUser(FileDescriptor()), std::nullopt);
}

TEST(PeerUser, OfAnotherUserIsThatOne) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const Listening here;
    auto stranger = std::async(std::launch::async, [&] { return strangerAt(here.port(), true); });
    const FileDescriptor accepted = here.accept();
    EXPECT_EQ(peerUser(accepted), TestSupport::nobody);
    EXPECT_EQ(AllowedPeers().refusal(accepted), "user 65534 is not allowed");
    EXPECT_EQ(AllowedPeers::fromNames({"65534"}).value().refusal(accepted), std::nullopt);
    EXPECT_EQ(AllowedPeers::fromNames({"any"}).value().refusal(accepted), std::nullopt);
    shutdown(accepted.value(), SHUT_RDWR);
    EXPECT_EQ(stranger.get(), 1);
}

TEST(AllowedPeers, AUserThatThereIsNotIsRefused) {
    EXPECT_EQ(AllowedPeers::fromNames({"no-such-user"}).refused().what,
              "there is no user \"no-such-user\"");
    EXPECT_TRUE(AllowedPeers::fromNames({"root", "1234"}));
    EXPECT_FALSE(AllowedPeers::fromNames({"root"}).value().areAll());
}

TEST(AllowedPeers, OnlyLoopbackKeepsOtherHostsOut) {
    for (const char* text : {"127.0.0.1:1", "127.1.2.3:1", "[::1]:1"}) {
        EXPECT_TRUE(ListenAddress::fromText(text).value().isLoopback()) << text;
    }
    for (const char* text : {"0.0.0.0:1", "10.0.0.1:1", "[::]:1", "[2001:db8::1]:1"}) {
        EXPECT_FALSE(ListenAddress::fromText(text).value().isLoopback()) << text;
    }
}

class Strangers : public FpmServerFixture {};

TEST_F(Strangers, AreClosedAndZebraStays) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    serve();
    EXPECT_EQ(strangerAt(port(), true), 1); // before zebra
    const Zebra zebra(port());
    zebra.tell("label_routes");
    ASSERT_TRUE(soon([&] { return now.labels() > 0; }));
    EXPECT_EQ(strangerAt(port(), true), 1);  // beside it
    EXPECT_EQ(strangerAt(port(), false), 2); // gone before it is looked at
    zebra.tell("plain_routes");
    EXPECT_TRUE(soon([&] { return now.ipRoutes() > 0; }));
    EXPECT_EQ(connections(), 1U);
    EXPECT_TRUE(hasLogged("a connection is closed: user 65534 is not allowed"));
}

} // namespace AllowedPeersTest
