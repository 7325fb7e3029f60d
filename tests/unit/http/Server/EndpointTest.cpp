#include "Server/Endpoint.h"

#include <gtest/gtest.h>

namespace EndpointTest {

using OvixHttp::Endpoint;
using OvixHttp::isOwnHost;

Endpoint endpoint(const std::string& text) {
    return Endpoint::fromText(text).value();
}

TEST(Endpoint, IsAPortOfAnAddressOrAPath) {
    EXPECT_EQ(endpoint("9473").text(), "127.0.0.1:9473");
    EXPECT_EQ(endpoint("192.0.2.1:80").text(), "192.0.2.1:80");
    EXPECT_EQ(endpoint("[2001:db8::1]:65535").text(), "[2001:db8::1]:65535");
    EXPECT_EQ(endpoint("/run/ovix/lab.http").text(), "/run/ovix/lab.http");
}

TEST(Endpoint, WhatIsNeitherIsRefused) {
    for (const char* const bad :
         {"", "/", "0", "65536", "x", "-1", "80x", "host:80", "2001:db8::1:80", "192.0.2.1",
          "192.0.2.1:", ":80", "[192.0.2.1]:80", "[::1]80", "1.2.3.4.5:80"}) {
        EXPECT_FALSE(Endpoint::fromText(bad)) << bad;
    }
}

TEST(Endpoint, OnlyItsOwnHostsAreMeant) {
    const Endpoint here = endpoint("192.0.2.1:9473");
    for (const char* const host : {"localhost", "LocalHost:9473", "127.0.0.1:9473", "[::1]:9473",
                                   "192.0.2.1:9473", "router.example", "ROUTER.example:9473"}) {
        EXPECT_TRUE(isOwnHost(host, here, {"router.example"})) << host;
    }
    for (const char* const host :
         {"", "evil.example", "evil.example:9473", "192.0.2.1.evil.example",
          "localhost.evil.example", "127.0.0.1.evil.example:9473", "192.0.2.2:9473",
          "[2001:db8::1]", "router.example.evil", "[localhost]", ":9473"}) {
        EXPECT_FALSE(isOwnHost(host, here, {"router.example"})) << host;
    }
}

TEST(Endpoint, WhoListensAtEveryAddressHasNoFurtherNames) {
    EXPECT_TRUE(isOwnHost("192.0.2.2:9473", endpoint("0.0.0.0:9473"), {}));
    EXPECT_TRUE(isOwnHost("[2001:db8::1]:9473", endpoint("[::]:9473"), {}));
    EXPECT_FALSE(isOwnHost("evil.example:9473", endpoint("0.0.0.0:9473"), {}));
    EXPECT_FALSE(isOwnHost("192.0.2.2", endpoint("/run/x"), {}));
}

} // namespace EndpointTest
