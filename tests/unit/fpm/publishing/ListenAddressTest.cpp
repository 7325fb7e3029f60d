#include "publishing/ListenAddress.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "FpmServerTesting.h"

namespace ListenAddressTest {

namespace {

using OvixFpm::ListenAddress;
using Posix::FileDescriptor;

std::string reasonAgainst(const std::string& text) {
    const auto address = ListenAddress::fromText(text);
    return address ? "none, it is " + address.value().text() : address.refused().what;
}

bool hostHasIpv6() {
    const FileDescriptor probe(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    return bind(probe.value(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

} // namespace

TEST(ListenAddress, IsZebrasDefaultUnlessGiven) {
    EXPECT_EQ(ListenAddress().text(), "127.0.0.1:2620");
}

TEST(ListenAddress, BothFamiliesReadAsTheyAreWritten) {
    for (const char* text : {"127.0.0.1:2620", "0.0.0.0:1", "[::1]:2620", "[2001:db8::2]:65535"}) {
        EXPECT_EQ(ListenAddress::fromText(text).value().text(), text);
    }
    EXPECT_EQ(ListenAddress::fromText("[2001:DB8:0:0::2]:02620").value().text(),
              "[2001:db8::2]:2620");
}

TEST(ListenAddress, AnInvalidAddressIsRefusedByName) {
    const std::pair<const char*, const char*> cases[] = {
        {"foo:2620", "\"foo\" is not an address"},
        {"localhost:2620", "\"localhost\" is not an address"},
        {"127.0.0.1.1:2620", "\"127.0.0.1.1\" is not an address"},
        {"127.1:2620", "\"127.1\" is not an address"},
        {"[foo]:2620", "\"foo\" is not an IPv6 address"},
        {"[127.0.0.1]:2620", "\"127.0.0.1\" is not an IPv6 address"},
        {"[::1:2620", "\"[::1:2620\" is not ADDRESS:PORT or [IPV6-ADDRESS]:PORT"},
    };
    for (const auto& [text, reason] : cases) {
        EXPECT_EQ(reasonAgainst(text), reason) << text;
    }
}

TEST(ListenAddress, AMissingAddressOrPortIsRefused) {
    for (const std::string text :
         {"", ":", "2620", ":2620", "[]:2620", "127.0.0.1", "127.0.0.1:", "127.0.0.1:0",
          "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:+1", "127.0.0.1: 1", "127.0.0.1:1x",
          "[::1]", "[::1]2620", "::1:2620", "::1"}) {
        EXPECT_EQ(reasonAgainst(text),
                  '"' + text + "\" is not ADDRESS:PORT or [IPV6-ADDRESS]:PORT");
    }
}

TEST(ListenAddress, ConnectionsOverIpv6AreListenedFor) {
    if (!hostHasIpv6()) {
        GTEST_SKIP() << "this host has no IPv6";
    }
    const std::uint16_t port = PublishingTesting::freePort();
    const FileDescriptor listener =
        ListenAddress::fromText("[::1]:" + std::to_string(port)).value().listen();
    const FileDescriptor client(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in6 to{};
    to.sin6_family = AF_INET6;
    to.sin6_port = htons(port);
    to.sin6_addr = in6addr_loopback;
    EXPECT_EQ(connect(client.value(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    EXPECT_TRUE(Posix::FileDescriptor(accept(listener.value(), nullptr, nullptr)).isOpen());
}

TEST(ListenAddress, AnAddressOfAnotherHostIsReportedWithTheReason) {
    const ListenAddress elsewhere = ListenAddress::fromText("192.0.2.1:2620").value();
    try {
        elsewhere.listen();
        FAIL() << "listens at 192.0.2.1";
    } catch (const std::system_error& error) {
        EXPECT_STREQ(error.what(),
                     "cannot listen at 192.0.2.1:2620: Cannot assign requested address");
    }
}

} // namespace ListenAddressTest
