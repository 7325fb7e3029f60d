#include "Published/IpRoutes.h"

#include <gtest/gtest.h>
#include <map>

#include "LocalTables.h"
#include "ShmTesting.h"
#include "TableTesting.h"

namespace IpRoutesTest {

namespace {

using L3::Route;
using L3::RouteKey;

Mpls::WeightedVia swapVia(std::uint32_t mtu = 1400, std::uint32_t weight = 1) {
    return {Mpls::Via::fromRecord(TableTesting::swapVia(mtu).via).value(), weight};
}

RouteKey key(const std::string& prefix, std::uint8_t length,
             std::uint32_t table = RouteKey::mainTable) {
    return {table, Lumo::IpGenAddr::fromText(prefix), length};
}

Route ending(const RouteKey& of, Route::Kind kind = Route::Kind::drop) {
    return {of, kind, {}, {}};
}

Route forwarding(const RouteKey& of, const std::vector<Mpls::WeightedVia>& vias) {
    return {of, Route::Kind::forward, vias, {}};
}

class RoutesTest : public testing::Test {
  protected:
    /// The places that hold a route, as the reader sees them.
    std::map<std::uint32_t, Route> standing() const {
        std::map<std::uint32_t, Route> found;
        tables.reader->forEach(routes.table(), [&](std::uint32_t place, Tessel::TableRef) {
            found.emplace(place, *routes.at(place));
        });
        return found;
    }
    std::uint32_t placeOf(const RouteKey& wanted) const {
        for (const auto& [place, route] : standing()) {
            if (route.key == wanted) {
                return place;
            }
        }
        ADD_FAILURE() << "no route for " << wanted.prefix.text();
        return 0;
    }

    TestSupport::LocalTables tables;
    L3::Routes routes{tables.reader};
    L3::RoutesWriter& writer = tables.publisher.ipRoutes();
    const RouteKey ten = key("10.0.0.0", 8);
    const RouteKey eleven = key("11.0.0.0", 8);
    const RouteKey six = key("2001:db8::", 32);
};

} // namespace

TEST_F(RoutesTest, EveryKindAndFamilyIsReadAsItWasWritten) {
    const std::vector<Mpls::WeightedVia> vias{swapVia(1400, 3), swapVia(1500, 5)};
    writer.routeIs(forwarding(ten, vias));
    writer.routeIs(ending(eleven, Route::Kind::local));
    writer.routeIs(ending(six));
    writer.routeIs(ending(key("0.0.0.0", 0, 10)));
    writer.routeIs(ending(key("2001:db8::1", 128, 0xffffffff), Route::Kind::local));
    EXPECT_EQ(routes.size(), 0U); // not committed yet
    tables.commit();
    ASSERT_EQ(routes.size(), 5U);
    const auto found = standing();
    EXPECT_EQ(found.at(0).key, ten);
    EXPECT_EQ(found.at(0).kind, Route::Kind::forward);
    EXPECT_EQ(found.at(0).vias, vias);
    EXPECT_EQ(found.at(1).kind, Route::Kind::local);
    EXPECT_EQ(found.at(2).key, six);
    EXPECT_EQ(found.at(2).kind, Route::Kind::drop);
    EXPECT_TRUE(found.at(2).vias.empty());
    EXPECT_EQ(found.at(3).key, key("0.0.0.0", 0, 10));
    EXPECT_EQ(found.at(4).key, key("2001:db8::1", 128, 0xffffffff));
    EXPECT_FALSE(routes.at(5));
    EXPECT_FALSE(routes.at(Tessel::TableLayout::maxKey));
}

TEST_F(RoutesTest, TheVrfStandsBesideItsTable) {
    const std::vector<Mpls::WeightedVia> vias{swapVia(1400, 3)};
    const std::string longest(L3::VrfName::maxSize, 'v');
    std::uint32_t place = 0;
    for (const std::string& name : {std::string(), std::string("red"), std::string("eight888"),
                                    std::string("nine99999"), longest}) {
        Route route = forwarding(key("10.0.0.0", 8, 10 + place), vias);
        route.vrf = name;
        writer.routeIs(route);
        Route end = ending(key("11.0.0.0", 8, 10 + place), Route::Kind::local);
        end.vrf = name;
        writer.routeIs(end);
        tables.commit();
        EXPECT_EQ(routes.at(place)->vrf.view(), name);
        EXPECT_EQ(routes.at(place)->vias, vias) << name;
        EXPECT_EQ(routes.at(place + 1)->vrf.view(), name);
        EXPECT_EQ(routes.at(place + 1)->kind, Route::Kind::local) << name;
        place += 2;
    }
}

TEST_F(RoutesTest, KeysDifferByTableFamilyPrefixAndLength) {
    const std::vector<RouteKey> all{key("10.0.0.0", 8),  key("10.0.0.0", 9), key("10.0.0.0", 8, 10),
                                    key("10.1.0.0", 16), key("::", 0),       key("0.0.0.0", 0),
                                    key("a00::", 8)};
    for (const RouteKey& each : all) {
        writer.routeIs(ending(each));
    }
    EXPECT_EQ(writer.keys().size(), all.size());
    for (const RouteKey& each : all) {
        EXPECT_TRUE(writer.routeDel(each)) << each.prefix.text();
        EXPECT_FALSE(writer.routeDel(each)) << each.prefix.text();
    }
    EXPECT_TRUE(writer.keys().empty());
}

TEST_F(RoutesTest, ANewRouteForAKeyTakesTheOldOnesPlace) {
    writer.routeIs(ending(ten));
    writer.routeIs(ending(eleven));
    tables.commit();
    const std::vector<Mpls::WeightedVia> vias{swapVia()};
    writer.routeIs(forwarding(ten, vias));
    tables.commit();
    EXPECT_EQ(routes.size(), 2U);
    EXPECT_EQ(routes.at(0)->key, ten);
    EXPECT_EQ(routes.at(0)->kind, Route::Kind::forward);
}

TEST_F(RoutesTest, APlaceThatIsFreeIsUsedAgain) {
    for (const RouteKey& each : {ten, eleven, six}) {
        writer.routeIs(ending(each));
    }
    writer.routeDel(eleven);
    writer.routeIs(ending(key("12.0.0.0", 8)));
    writer.routeIs(ending(eleven));
    tables.commit();
    EXPECT_EQ(routes.at(1)->key, key("12.0.0.0", 8));
    EXPECT_EQ(routes.at(3)->key, eleven);
    EXPECT_EQ(routes.size(), 4U);
}

TEST_F(RoutesTest, RoutesThatComeAndGoFillNothing) {
    const std::vector<Mpls::WeightedVia> vias{swapVia()};
    writer.routeIs(forwarding(ten, vias));
    tables.commit();
    const std::size_t used = tables.publisher.tables().usedBytes();
    for (int i = 0; i < 50; ++i) {
        writer.routeDel(ten);
        tables.commit();
        writer.routeIs(forwarding(ten, vias));
        tables.commit();
    }
    EXPECT_EQ(tables.publisher.tables().usedBytes(), used);
    EXPECT_EQ(placeOf(ten), 0U);
}

TEST_F(RoutesTest, WhatWasNotCommittedIsTakenBack) {
    writer.routeIs(ending(ten));
    writer.routeIs(ending(eleven));
    tables.commit();
    writer.routeDel(ten);
    writer.routeIs(ending(eleven, Route::Kind::local));
    writer.routeIs(ending(six));
    tables.publisher.discard();
    EXPECT_EQ(writer.keys(), (std::vector<RouteKey>{ten, eleven}));
    writer.routeIs(ending(six));
    tables.commit();
    EXPECT_EQ(placeOf(ten), 0U);
    EXPECT_EQ(routes.at(1)->kind, Route::Kind::drop);
    EXPECT_EQ(placeOf(six), 2U);
}

TEST_F(RoutesTest, TheNextWriterTakesRoutesOverAndUsesTheHoles) {
    for (const RouteKey& each : {ten, eleven, six}) {
        writer.routeIs(ending(each));
    }
    writer.routeDel(eleven);
    tables.commit();
    L3::RoutesWriter next(const_cast<Tessel::TableWriter&>(tables.publisher.tables()),
                          routes.table());
    EXPECT_EQ(next.keys(), (std::vector<RouteKey>{ten, six}));
    next.routeIs(ending(key("12.0.0.0", 8)));
    next.routeIs(ending(six, Route::Kind::local));
    tables.commit();
    EXPECT_EQ(routes.at(1)->key, key("12.0.0.0", 8));
    EXPECT_EQ(routes.at(2)->kind, Route::Kind::local);
    EXPECT_EQ(routes.size(), 3U);
}

TEST_F(RoutesTest, EveryFlippedBitOfARecordIsRefused) {
    const std::vector<Mpls::WeightedVia> vias{swapVia()};
    writer.routeIs(forwarding(ten, vias));
    tables.commit();
    const Tessel::TableRef ref = tables.reader->entry(routes.table(), 0);
    std::uint64_t* words = ShmTesting::wordsOf(tables.publisher.tables().memory()) + ref.unit();
    const std::size_t own = tables.reader->headOf(ref, "").ownWords;
    for (std::size_t bit = 0; bit < (1 + own) * 64; ++bit) {
        words[bit / 64] ^= std::uint64_t{1} << bit % 64;
        EXPECT_TRUE(ShmTesting::corruption([&] { routes.at(0); })) << "bit " << bit;
        words[bit / 64] ^= std::uint64_t{1} << bit % 64;
    }
    EXPECT_EQ(routes.at(0)->key, ten);
}

TEST_F(RoutesTest, ARecordThatIsSealedButNoRouteIsRefused) {
    // Table, length, family and kind as the first word has them.
    const auto first = [](std::uint64_t length, std::uint64_t family, std::uint64_t kind) {
        return 254U | length << 32U | family << 40U | kind << 48U;
    };
    const std::vector<std::vector<std::uint64_t>> wrong{
        {first(8, 4, 3)},        {first(8, 4, 3), 0},
        {first(33, 4, 3), 0, 0}, {first(129, 6, 3), 0, 0},
        {first(8, 0, 3), 0, 0},  {first(8, 5, 3), 0, 0},
        {first(8, 4, 0), 0, 0},  {first(8, 4, 6), 0, 0},
        {first(8, 4, 1), 0, 0},  {first(8, 4, 1), 0, 0, 0xffff}};
    auto& raw = const_cast<Tessel::TableWriter&>(tables.publisher.tables());
    for (std::size_t i = 0; i < wrong.size(); ++i) {
        raw.recordEntryIs(routes.table(), 0, Tessel::RecordKind::ipRoute, wrong[i]);
        tables.commit();
        const auto said = ShmTesting::corruption([&] { routes.at(0); });
        ASSERT_TRUE(said) << "record " << i;
        EXPECT_NE(said->find("IP route at unit"), std::string::npos) << *said;
    }
    const std::vector<std::uint64_t> right{first(8, 4, 3), 10, 0};
    raw.recordEntryIs(routes.table(), 0, Tessel::RecordKind::ipRoute, right);
    tables.commit();
    EXPECT_EQ(routes.at(0)->key, ten);
}

} // namespace IpRoutesTest
