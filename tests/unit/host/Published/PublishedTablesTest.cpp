#include "Published/PublishedTables.h"

#include <algorithm>

#include "LocalTables.h"
#include "ShmTesting.h"
#include "TableTesting.h"

namespace PublishedTablesTest {

namespace {

using namespace ShmTesting;
using Mpls::LfibStatus;
using Mpls::PublishedTables;
using Mpls::TableId;
using TableTesting::Heard;
using TableTesting::key;
using TableTesting::swapVia;
using Tessel::TableLayout::pageEntries;
using TestSupport::LocalTables;

class Published : public testing::Test {
  protected:
    ~Published() override {
        if (subscribed) {
            transit->unsubscribe(heard);
        }
    }
    void subscribe() {
        transit->subscribe(heard);
        subscribed = true;
        published.noticeSubscribers();
    }
    void routeIs(std::uint32_t label, std::uint32_t mtu = 1400,
                 TableId table = TableId::transitLfib) {
        tables.publisher.lfib(table).routeIs(key(label), Mpls::LfibViaType::ip,
                                             Mpls::LfibViaSetType::unicast,
                                             std::vector{swapVia(mtu)});
    }
    std::uint32_t mtuOf(std::uint32_t label) const {
        const Mpls::LfibViaSet set = transit->viaSet(transit->route(key(label)).viaSetKey);
        return set.members.empty() ? 0 : transit->ipVia(set.members[0]).nexthopMtu;
    }
    /// The labels reported since the last call, in order of number.
    std::vector<std::uint32_t> reported() {
        std::vector<std::uint32_t> labels;
        for (const auto& [attribute, changed] : std::exchange(heard.changes, {})) {
            EXPECT_EQ(attribute, LfibStatus::routeAttr);
            labels.push_back(Mpls::RouteKey::fromValue(changed).topLabel().value());
        }
        std::sort(labels.begin(), labels.end());
        return labels;
    }
    std::uint64_t* words() { return wordsOf(tables.publisher.tables().memory()); }
    /// What stands in the root that is current.
    std::uint64_t& rootWord() {
        return words()[TableRef{headerOf(tables.publisher.tables().memory()).current}.unit() + 1];
    }
    std::uint64_t& pageRef(std::uint32_t label) {
        const auto table = static_cast<std::size_t>(TableId::transitLfib);
        return words()[tables.reader->root().tables[table].directory + 2 * (label / pageEntries)];
    }

    LocalTables tables;
    PublishedTables& published = tables.published;
    const Ptr<LfibStatus>& transit = published.lfib(TableId::transitLfib);
    Heard heard;
    bool subscribed = false;
};

using Labels = std::vector<std::uint32_t>;

TEST_F(Published, AllTablesGoOverToAGenerationTogether) {
    routeIs(16);
    routeIs(17, 1400, TableId::decapLfib);
    tables.publisher.hardware().routeIs({key(18), 1, false});
    tables.publisher.mvpn().vrfIntfIdIs({7}, Lumo::IntfId("eth1"));
    tables.publisher.commit();
    const auto& decap = published.lfib(TableId::decapLfib);
    EXPECT_EQ(transit->routes() + decap->routes() + published.hardware()->routes() +
                  published.mvpn()->vrfs(),
              0U);
    published.refresh();
    EXPECT_EQ(transit->routes(), 1U);
    EXPECT_EQ(decap->routes(), 1U);
    EXPECT_EQ(published.hardware()->routes(), 1U);
    EXPECT_EQ(published.mvpn()->vrfs(), 1U);
    EXPECT_EQ(published.tables().generation(), tables.publisher.tables().generation());
    EXPECT_EQ(transit->name(), "mpls/transitLfib");
}

TEST_F(Published, SubscribersHearOfTheirTableAlone) {
    routeIs(16);
    tables.publisher.commit();
    TestSupport::refreshWholly(published);
    subscribe(); // what is there already is not reported
    routeIs(17);
    routeIs(18, 1400, TableId::decapLfib);
    tables.publisher.commit();
    EXPECT_EQ(reported(), Labels());
    TestSupport::refreshWholly(published);
    EXPECT_EQ(reported(), Labels{17});
    tables.publisher.lfib(TableId::transitLfib).routeDel(key(16));
    routeIs(17, 1500);
    tables.publisher.commit();
    TestSupport::refreshWholly(published);
    EXPECT_EQ(reported(), (Labels{16, 17}));
}

TEST_F(Published, WhatIsReportedIsReadableAndNothingIsReportedAfterTheLastSubscriber) {
    subscribe();
    std::vector<std::uint32_t> mtus;
    heard.onReport = [&] { mtus.push_back(mtuOf(16)); };
    routeIs(16, 1300);
    tables.publisher.commit();
    TestSupport::refreshWholly(published);
    transit->unsubscribe(heard);
    subscribed = false;
    published.noticeSubscribers();
    routeIs(16, 1400);
    tables.publisher.commit();
    TestSupport::refreshWholly(published);
    EXPECT_EQ(mtus, std::vector<std::uint32_t>{1300});
    subscribe(); // again: nothing of what changed before
    TestSupport::refreshWholly(published);
    EXPECT_EQ(mtus, std::vector<std::uint32_t>{1300});
}

TEST_F(Published, HardwareAndMulticastChangesAreReportedUnderTheirKeys) {
    using Mpls::Hardware::Status;
    Heard hardware;
    Heard mvpn;
    published.hardware()->subscribe(hardware);
    published.mvpn()->subscribe(mvpn);
    published.noticeSubscribers();
    tables.publisher.hardware().routeIs({key(18), 1, false});
    tables.publisher.hardware().adjacencyIs(1, *Mpls::Hardware::Adjacency::create({}, {}, false));
    tables.publisher.mvpn().vrfIntfIdIs({7}, Lumo::IntfId("eth1"));
    tables.publisher.commit();
    TestSupport::refreshWholly(published);
    EXPECT_EQ(hardware.changes, (std::vector<Heard::Change>{{Status::routeAttr, key(18).value()},
                                                            {Status::adjacencyAttr, 1}}));
    EXPECT_EQ(mvpn.changes, (std::vector<Heard::Change>{{0, 7}}));
    published.hardware()->unsubscribe(hardware);
    published.mvpn()->unsubscribe(mvpn);
}

TEST_F(Published, ALargeBatchIsReportedAPageAtATimeAndReadableAtOnce) {
    subscribe();
    for (std::uint32_t i = 0; i < 5; ++i) {
        routeIs(i * 1024 + 100, 1300 + i);
    }
    tables.publisher.commit();
    for (std::uint32_t i = 0; i < 5; ++i) {
        published.refresh();
        EXPECT_EQ(reported(), Labels{i * 1024 + 100});
        EXPECT_EQ(mtuOf(4 * 1024 + 100), 1304U);
    }
    published.refresh();
    EXPECT_EQ(reported(), Labels());
}

TEST_F(Published, ADamagedNewestRootIsReportedToEveryHookOnceAndTheLastOneKept) {
    routeIs(16, 1300);
    tables.publisher.commit();
    TestSupport::refreshWholly(published);
    const std::uint64_t held = published.tables().generation();
    routeIs(16, 1400);
    tables.publisher.commit();
    rootWord() ^= 1U;
    for (int i = 0; i < 3; ++i) {
        published.refresh();
    }
    for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
        const auto& lfib = published.lfib(static_cast<TableId>(i));
        EXPECT_EQ(lfib->corruptionsDetected(), 1U);
        EXPECT_NE(lfib->lastCorruption().find("tables: root at unit "), std::string::npos);
    }
    EXPECT_EQ(published.hardware()->corruptionsDetected(), 1U);
    EXPECT_EQ(published.mvpn()->corruptionsDetected(), 1U);
    EXPECT_EQ(published.corruptionsDetected(), Mpls::lfibs + 2U);
    EXPECT_EQ(published.tables().generation(), held);
    EXPECT_EQ(mtuOf(16), 1300U);
    rootWord() ^= 1U;
    routeIs(16, 1500);
    tables.publisher.commit();
    published.refresh();
    EXPECT_EQ(mtuOf(16), 1500U);
    EXPECT_EQ(published.corruptionsDetected(), Mpls::lfibs + 2U);
}

TEST_F(Published, ADamagedPageIsReportedToTheHooksAndTheOthersToSubscribers) {
    subscribe();
    routeIs(100);
    routeIs(5000);
    tables.publisher.commit();
    tables.reader->refresh();
    pageRef(100) ^= 1U;
    routeIs(9000);
    tables.publisher.commit(); // a directory of its own: as damaged as the one before
    TestSupport::refreshWholly(published);
    EXPECT_EQ(reported(), (Labels{5000, 9000}));
    EXPECT_EQ(transit->corruptionsDetected(), 1U);
}

TEST_F(Published, SubscribingToADamagedTableDoesNotThrow) {
    routeIs(100);
    routeIs(5000);
    tables.publisher.commit();
    TestSupport::refreshWholly(published);
    pageRef(100) ^= 1U;
    subscribe();
    routeIs(5000, 1500);
    tables.publisher.commit();
    TestSupport::refreshWholly(published);
    EXPECT_EQ(reported(), Labels{5000});
}

/// A set of tables of which nothing that is held lasts.
class HurriedTables : public testing::Test {
  protected:
    /// Runs `work` in a process of its own; false when it does not come to an end.
    static bool ends(const std::function<void()>& work) {
        Child child([&] {
            alarm(5);
            work();
        });
        return WIFEXITED(child.wait());
    }
    void generations() {
        for (std::uint32_t i = 0; i < 5; ++i) {
            publisher.lfib(TableId::transitLfib)
                .routeIs(key(16), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::unicast,
                         std::vector{swapVia(++mtu)});
            publisher.commit();
        }
    }

    Mpls::TablePublisher publisher{Tessel::TableMemory::ofProcess(enough),
                                   std::chrono::milliseconds(0)};
    PublishedTables published{
        Tessel::make<Tessel::TableReader>("tables", std::as_bytes(publisher.tables().memory()))};
    const Ptr<LfibStatus>& transit = published.lfib(TableId::transitLfib);
    std::uint32_t mtu = 1000;
    Heard heard;
};

TEST_F(HurriedTables, ASubscriberOfALostGenerationHearsFromTheNextOneOn) {
    generations();
    transit->subscribe(heard);
    EXPECT_NO_THROW(published.noticeSubscribers());
    TestSupport::refreshWholly(published);
    EXPECT_EQ(published.tables().generation(), publisher.tables().generation());
    heard.changes.clear();
    generations();
    TestSupport::refreshWholly(published);
    EXPECT_EQ(heard.changes, (std::vector<Heard::Change>{{0, key(16).value()}}));
    transit->unsubscribe(heard);
}

TEST_F(HurriedTables, NothingWaitsForAGenerationThatDoesNotCome) {
    struct Case {
        const char* what;
        bool subscribedBefore;
        std::function<void()> damage;
    };
    auto& header = headerOf(publisher.tables().memory());
    const std::vector<Case> cases = {
        {"newest root", false, [&] { header.current ^= 1U; }},
        {"newest root, subscribed", true, [&] { header.current ^= 1U; }},
        {"horizon", false, [&] { header.horizon ^= 1U; }},
        {"horizon, subscribed", true, [&] { header.horizon ^= 1U; }},
    };
    for (const Case& one : cases) {
        EXPECT_TRUE(ends([&] {
            if (one.subscribedBefore) {
                transit->subscribe(heard);
                published.noticeSubscribers();
            }
            generations();
            one.damage();
            transit->subscribe(heard);
            published.noticeSubscribers();
            TestSupport::refreshWholly(published);
        })) << one.what;
    }
}

} // namespace

} // namespace PublishedTablesTest
