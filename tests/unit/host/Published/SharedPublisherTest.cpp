#include "Published/SharedPublisher.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "Published/PublishedTables.h"
#include "Refusal.h"
#include "ShmTesting.h"

namespace SharedPublisherTest {

namespace {

using namespace std::chrono_literals;
using Mpls::RouteOwner;
using Mpls::SharedPublisher;
using Since = Mpls::SharedPublisher::Since;

Mpls::LabelRoute popRoute(std::uint32_t label, RouteOwner owner) {
    Mpls::LabelRoute route;
    route.label = Lumo::MplsLabel(label);
    route.owner = owner;
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId("east");
    route.vias = {{Mpls::Via::pop(options).value(), 1}};
    return route;
}

void publish(SharedPublisher& shared, std::uint32_t label, RouteOwner owner) {
    EXPECT_TRUE(shared.tables().labelRoutes().routeIs(popRoute(label, owner)));
    shared.tables().commit();
    shared.end();
}

std::size_t routesIn(const std::string& name) {
    const Tessel::TableReader reader(Tessel::TableMemory::sharedForReading(name));
    return reader.entries(static_cast<std::size_t>(Mpls::TableId::transitLfib));
}

} // namespace

TEST(SharedPublisher, WritersTakeTurnsAndLoseNothingOfEachOther) {
    const ShmTesting::SharedName name;
    SharedPublisher one(name, RouteOwner::fpm, 0ms);
    SharedPublisher other(name, RouteOwner::pseudowires, 0ms);
    EXPECT_EQ(one.begin(0ms), Since::nothing);
    publish(one, 100, RouteOwner::fpm);
    EXPECT_EQ(one.begin(0ms), Since::nothing) << "its own change";
    one.end();
    EXPECT_EQ(other.begin(0ms), Since::othersWrote);
    publish(other, 101, RouteOwner::pseudowires);
    EXPECT_EQ(one.begin(0ms), Since::othersWrote);
    publish(one, 102, RouteOwner::fpm);
    EXPECT_EQ(routesIn(name), 3U);
}

TEST(SharedPublisher, AnOwnerHasOneLongLivedWriter) {
    const ShmTesting::SharedName name;
    const SharedPublisher first(name, RouteOwner::fpm, 0ms);
    EXPECT_EQ(TestSupport::refusal([&] { SharedPublisher(name, RouteOwner::fpm, 0ms); }),
              "tables \"" + name.text() + "\": another process publishes routes of this owner");
    EXPECT_NO_THROW(SharedPublisher(name, RouteOwner::pseudowires, 0ms));
}

TEST(SharedPublisher, AWriterWaitsForAnotherOnlySoLong) {
    const ShmTesting::SharedName name;
    SharedPublisher one(name, RouteOwner::fpm, 0ms);
    SharedPublisher other(name, RouteOwner::pseudowires, 0ms);
    one.begin(0ms);
    EXPECT_THROW(other.begin(1ms), Tessel::TablesBusy);
    EXPECT_FALSE(other.hasBegun());
    one.end();
    EXPECT_EQ(other.begin(0ms), Since::nothing);
}

TEST(SharedPublisher, OneThatReleasesAndTakesAtOnceKeepsNobodyOut) {
    const ShmTesting::SharedName name;
    SharedPublisher patient(name, RouteOwner::pseudowires, 0ms);
    std::atomic<bool> stop = false;
    std::thread greedy([&] {
        SharedPublisher busy(name, RouteOwner::fpm, 1s);
        for (std::uint32_t label = 100; !stop; label = label % 1000 + 100) {
            busy.begin(5s);
            publish(busy, label, RouteOwner::fpm);
        }
    });
    for (std::uint32_t turn = 0; turn < 20; ++turn) {
        EXPECT_NO_THROW(patient.begin(5s));
        publish(patient, 5000 + turn, RouteOwner::pseudowires);
    }
    stop = true;
    greedy.join();
}

TEST(SharedPublisher, TablesThatHaveBeenReplacedAreNoticed) {
    const ShmTesting::SharedName name;
    SharedPublisher one(name, RouteOwner::fpm, 0ms);
    one.begin(0ms);
    publish(one, 100, RouteOwner::fpm);
    Tessel::TableMemory::remove(name);
    EXPECT_EQ(one.begin(0ms), Since::replaced);
    EXPECT_FALSE(one.tables().labelRoutes().published(Lumo::MplsLabel(100)));
    publish(one, 101, RouteOwner::fpm);
    EXPECT_EQ(routesIn(name), 1U);
    EXPECT_EQ(one.begin(0ms), Since::nothing);
    one.end();
}

TEST(SharedPublisher, TablesOfThisProcessAloneHaveNoTurns) {
    Mpls::TablePublisher own(Tessel::TableMemory::ofProcess(std::size_t{1} << 24U));
    SharedPublisher shared(own);
    EXPECT_EQ(shared.begin(0ms), Since::nothing);
    publish(shared, 100, RouteOwner::fpm);
    EXPECT_EQ(own.labelRoutes().published(Lumo::MplsLabel(100)), RouteOwner::fpm);
}

} // namespace SharedPublisherTest
