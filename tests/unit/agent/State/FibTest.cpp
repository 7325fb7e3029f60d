#include "State/Fib.h"

#include <array>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <set>

#include "Tessel/Changes.h"

namespace FibTest {

using namespace OvixAgent;

namespace {

Lumo::IpGenAddr text(const std::string& written) {
    return Lumo::IpGenAddr::fromText(written);
}

Lumo::IpGenPrefix prefix(const std::string& address, std::uint8_t length) {
    return Lumo::IpGenPrefix::of(text(address), length);
}

/// A route that differs from others in the port of its via.
IpRoute routeTo(PortIndex port) {
    IpRouteVia via;
    via.port = port;
    return IpRoute::forward({via});
}

/// What the FIB answers: the port of the route, or nothing.
std::optional<PortIndex> portFor(const Fib& fib, const Lumo::IpGenAddr& destination) {
    const IpRoute* found = fib.find(destination);
    return found != nullptr ? std::optional(found->vias().front().port) : std::nullopt;
}

/// Asks every prefix: slow and plainly right.
class Reference {
  public:
    bool insert(const Lumo::IpGenPrefix& wanted, PortIndex port) {
        for (const auto& [known, ignored] : prefixes_) {
            if (known == wanted) {
                return false;
            }
        }
        prefixes_.emplace_back(wanted, port);
        return true;
    }
    std::optional<PortIndex> portFor(const Lumo::IpGenAddr& destination) const {
        std::optional<PortIndex> best;
        int longest = -1;
        for (const auto& [known, port] : prefixes_) {
            if (known.length() > longest && known.contains(destination)) {
                best = port;
                longest = known.length();
            }
        }
        return best;
    }

  private:
    std::vector<std::pair<Lumo::IpGenPrefix, PortIndex>> prefixes_;
};

/// Addresses of few distinct bits, so that prefixes nest and random destinations hit them.
Lumo::IpGenAddr randomAddress(std::mt19937& random, Lumo::IpFamily family) {
    std::array<std::uint8_t, Lumo::IpGenAddr::ipv6Size> bytes{};
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random() % 4 == 0 ? random() : random() % 2 * 255);
    }
    return family == Lumo::IpFamily::ipv4 ? Lumo::IpGenAddr::ipv4(bytes.data())
                                          : Lumo::IpGenAddr::ipv6(bytes.data());
}

} // namespace

TEST(Fib, FindsWhatAskingEveryPrefixFinds) {
    for (const Lumo::IpFamily family : {Lumo::IpFamily::ipv4, Lumo::IpFamily::ipv6}) {
        std::mt19937 random(7);
        Fib fib;
        Reference reference;
        const unsigned longest = Lumo::IpGenAddr(family).bits();
        for (PortIndex i = 0; i < 2000; ++i) {
            const auto length = static_cast<std::uint8_t>(random() % (longest + 1));
            const auto made = Lumo::IpGenPrefix::of(randomAddress(random, family), length);
            ASSERT_EQ(fib.insert(made, routeTo(i)), reference.insert(made, i));
        }
        std::size_t hits = 0;
        for (int i = 0; i < 5000; ++i) {
            const Lumo::IpGenAddr destination = randomAddress(random, family);
            const auto expected = reference.portFor(destination);
            ASSERT_EQ(portFor(fib, destination), expected) << destination.text();
            hits += expected ? 1U : 0U;
        }
        EXPECT_GT(hits, 1000U);
    }
}

TEST(Fib, TheLongestOfNestedPrefixesWinsDownToTheDefaultRoute) {
    Fib fib;
    EXPECT_EQ(portFor(fib, text("10.1.2.3")), std::nullopt);
    EXPECT_TRUE(fib.insert(prefix("0.0.0.0", 0), routeTo(0)));
    EXPECT_TRUE(fib.insert(prefix("10.1.0.0", 16), routeTo(16)));
    EXPECT_TRUE(fib.insert(prefix("10.1.2.3", 32), routeTo(32)));
    EXPECT_TRUE(fib.insert(prefix("10.0.0.0", 8), routeTo(8)));
    EXPECT_EQ(portFor(fib, text("10.1.2.3")), 32U);
    EXPECT_EQ(portFor(fib, text("10.1.2.4")), 16U);
    EXPECT_EQ(portFor(fib, text("10.2.2.3")), 8U);
    EXPECT_EQ(portFor(fib, text("11.0.0.0")), 0U);
    EXPECT_EQ(portFor(fib, text("255.255.255.255")), 0U);
}

TEST(Fib, AHostRouteMatchesItsAddressAlone) {
    Fib fib;
    fib.insert(prefix("2001:db8::1", 128), routeTo(128));
    fib.insert(prefix("2001:db8::", 65), routeTo(65));
    EXPECT_EQ(portFor(fib, text("2001:db8::1")), 128U);
    EXPECT_EQ(portFor(fib, text("2001:db8::2")), 65U);
    EXPECT_EQ(portFor(fib, text("2001:db8::8000:0:0:1")), std::nullopt);
}

TEST(Fib, TheFamiliesAreApartAndNoFamilyIsNowhere) {
    Fib fib;
    fib.insert(prefix("0.0.0.0", 0), routeTo(4));
    EXPECT_EQ(portFor(fib, text("::")), std::nullopt);
    EXPECT_EQ(portFor(fib, {}), std::nullopt);
    fib.insert(prefix("::", 0), routeTo(6));
    EXPECT_EQ(portFor(fib, text("::")), 6U);
    EXPECT_EQ(portFor(fib, text("0.0.0.0")), 4U);
}

TEST(Fib, AnExactPrefixIsFoundAloneAmongNestedOnes) {
    Fib fib;
    EXPECT_EQ(fib.find(text("10.1.0.0"), 16), nullptr);
    fib.insert(prefix("0.0.0.0", 0), routeTo(0));
    fib.insert(prefix("10.0.0.0", 8), routeTo(8));
    fib.insert(prefix("10.1.0.0", 16), routeTo(16));
    fib.insert(prefix("2001:db8::", 32), routeTo(32));
    const auto exact = [&](const char* address, unsigned length) -> std::optional<PortIndex> {
        const IpRoute* found = fib.find(text(address), length);
        return found != nullptr ? std::optional(found->vias().front().port) : std::nullopt;
    };
    EXPECT_EQ(exact("10.1.0.0", 16), 16U);
    EXPECT_EQ(exact("10.0.0.0", 8), 8U);
    EXPECT_EQ(exact("0.0.0.0", 0), 0U);
    EXPECT_EQ(exact("2001:db8::", 32), 32U);
    EXPECT_EQ(exact("10.2.0.0", 16), std::nullopt);
    EXPECT_EQ(exact("10.1.0.0", 17), std::nullopt);
    EXPECT_EQ(exact("10.0.0.0", 32), std::nullopt);
    EXPECT_EQ(fib.find({}, 0), nullptr);
}

TEST(Fib, TheFirstRouteOfAPrefixStays) {
    Fib fib;
    EXPECT_TRUE(fib.insert(prefix("10.0.0.0", 8), routeTo(1)));
    EXPECT_FALSE(fib.insert(prefix("10.0.0.0", 8), routeTo(2)));
    EXPECT_TRUE(fib.insert(prefix("10.0.0.0", 9), routeTo(3)));
    EXPECT_EQ(portFor(fib, text("10.200.0.1")), 1U);
}

TEST(IpRoute, FlowsAreSharedByWeightAndEachKeepsItsVia) {
    IpRouteVia idle;
    idle.weight = 0;
    IpRouteVia one;
    one.port = 1;
    IpRouteVia three;
    three.port = 2;
    three.weight = 3;
    const IpRoute route = IpRoute::forward({idle, one, three});
    const std::vector<Port> ports(3);
    std::array<std::size_t, 3> shares{};
    for (std::uint32_t hash = 0; hash < 400; ++hash) {
        ++shares[route.choose(hash, ports)];
        EXPECT_EQ(route.choose(hash, ports), route.choose(hash, ports));
    }
    EXPECT_EQ(shares, (std::array<std::size_t, 3>{0, 100, 300}));
    EXPECT_EQ(route.choose(~0U, ports), 2U);
}

TEST(IpRoute, FlowsOfAPortThatIsDownTakeAnother) {
    std::vector<IpRouteVia> vias(3);
    for (PortIndex i = 0; i < vias.size(); ++i) {
        vias[i].port = i;
    }
    const IpRoute route = IpRoute::forward(vias);
    const std::vector<Port> allUp(3);
    std::vector<Port> ports(3);
    ports[1].isUp = false;
    std::size_t moved = 0;
    for (std::uint32_t hash = 0; hash < 300; ++hash) {
        const std::size_t before = route.choose(hash, allUp);
        const std::size_t now = route.choose(hash, ports);
        EXPECT_TRUE(now == before || (before == 1 && now != 1)) << hash;
        moved += now != before ? 1 : 0;
    }
    EXPECT_EQ(moved, 100U);
    ports[0].isUp = ports[2].isUp = false;
    EXPECT_EQ(route.choose(4, ports), route.choose(4, allUp));
}

TEST(Fib, WhatALearnedRouteHidIsFoundAgainOnceItIsRemoved) {
    for (const std::string& host : {std::string("10.1.2.3"), std::string("2001:db8::1")}) {
        const std::uint8_t longest = text(host).bits();
        Fib fib;
        fib.insert(prefix(host, 8), routeTo(8));
        fib.insert(prefix(host, longest), routeTo(1));
        fib.routeIs(prefix(host, 16), routeTo(16));
        fib.routeIs(prefix(host, longest), routeTo(2));
        EXPECT_EQ(portFor(fib, text(host)), 2U) << host;
        EXPECT_TRUE(fib.routeDel(prefix(host, longest)));
        EXPECT_EQ(portFor(fib, text(host)), 1U) << host;
        EXPECT_EQ(portFor(fib, text(host).masked(17)), 16U) << host;
        EXPECT_TRUE(fib.routeDel(prefix(host, 16)));
        EXPECT_EQ(portFor(fib, text(host).masked(17)), 8U) << host;
    }
}

TEST(Fib, ARouteKeepsItsNumberAndChangesAreToldByNumber) {
    Fib fib;
    const auto changed = [&fib] {
        std::set<std::uint32_t> numbers;
        fib.takeChanged([&](std::uint32_t number) { numbers.insert(number); });
        return numbers;
    };
    EXPECT_EQ(fib.numberOf(text("10.1.0.1")), noPrefix);
    fib.insert(prefix("10.0.0.0", 8), routeTo(8));
    fib.routeIs(prefix("10.1.0.0", 16), routeTo(16));
    const std::uint32_t eight = fib.numberOf(text("10.9.0.1"));
    const std::uint32_t sixteen = fib.numberOf(text("10.1.0.1"));
    EXPECT_EQ(fib.route(sixteen).vias().front().port, 16U);
    EXPECT_EQ(fib.numberOfIpv4(text("10.1.0.1").bytes().data()), sixteen);
    EXPECT_EQ(changed(), (std::set{eight, sixteen}));
    EXPECT_TRUE(changed().empty());
    const std::uint64_t before = Tessel::Changes::count();
    fib.routeIs(prefix("10.1.0.0", 16), routeTo(17));
    EXPECT_GT(Tessel::Changes::count(), before);
    EXPECT_TRUE(changed().contains(fib.numberOf(text("10.1.0.1"))));
    EXPECT_EQ(fib.numberOf(text("10.9.0.1")), eight);
    fib.routeDel(prefix("10.1.0.0", 16));
    EXPECT_FALSE(changed().empty());
}

TEST(Fib, WhenVeryManyRoutesHaveChangedAllAreSaidToHave) {
    Fib fib;
    fib.insert(prefix("10.0.0.0", 8), routeTo(8));
    std::size_t visits = 0;
    fib.takeChanged([&](std::uint32_t) { ++visits; });
    for (std::uint32_t i = 0; i < 5000; ++i) {
        fib.routeIs(prefix("10.1.0.0", 16), routeTo(i));
    }
    std::set<std::uint32_t> numbers;
    fib.takeChanged([&](std::uint32_t number) { numbers.insert(number); });
    EXPECT_EQ(numbers.size(), fib.numbers());
}

} // namespace FibTest
