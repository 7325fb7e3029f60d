#include "FpmBytes.h"
#include "FpmServerTesting.h"

namespace FpmConnectionsTest {

namespace {

using namespace PublishingTesting;
using TestSupport::Fpm::Bytes;
using TestSupport::Fpm::frame;
using TestSupport::Fpm::message;
using TestSupport::Fpm::recorded;

constexpr std::size_t labelRoutes = 6; // in the recording of that name
constexpr std::size_t plainRoutes = 3;

class FpmConnections : public FpmServerFixture {
  protected:
    void tellLabels(const Zebra& zebra) {
        zebra.tell("label_routes");
        ASSERT_TRUE(soon([&] { return now.labels() == labelRoutes; }));
    }
    /// So long that the server has looked at whatever has come, and has swept if it ever will.
    void wait(std::chrono::milliseconds time = std::chrono::milliseconds(150)) {
        std::this_thread::sleep_for(time);
        reader->refresh();
    }
    void expectServed(const Zebra& zebra) {
        zebra.tell("plain_routes");
        EXPECT_TRUE(soon([&] { return now.ipRoutes() == plainRoutes; }));
    }
};

Bytes ofText(const std::string& text) {
    return {text.begin(), text.end()};
}

} // namespace

TEST_F(FpmConnections, ASilentConnectionWaitsBesideZebra) {
    serve();
    const Zebra zebra(port());
    tellLabels(zebra);
    const Zebra silent(port());
    wait();
    expectServed(zebra);
    EXPECT_FALSE(hasLogged("zebra has connected again"));
    EXPECT_EQ(connections(), 1U);
}

TEST_F(FpmConnections, HalfAFrameIsKeptAndReplacesZebraWhenItIsWhole) {
    serve(std::chrono::milliseconds(30));
    const Zebra first(port());
    tellLabels(first);
    const Zebra second(port());
    const Bytes bytes = recorded("plain_routes");
    for (std::size_t i = 0; i < 10; ++i) {
        second.say({bytes.data() + i, 1});
    }
    wait();
    EXPECT_EQ(connections(), 1U);
    EXPECT_EQ(now.labels(), labelRoutes);
    second.say(std::span(bytes).subspan(10));
    ASSERT_TRUE(soon([&] { return now.ipRoutes() == plainRoutes; }));
    EXPECT_TRUE(hasLogged("zebra has connected again"));
    EXPECT_TRUE(hasLogged("zebra is connected; 6 routes are stale until confirmed"));
    EXPECT_TRUE(soon([&] { return now.labels() == 0; }));
}

TEST_F(FpmConnections, OneThatWaitedIsServedAfterZebraHasGone) {
    serve();
    Zebra first(port());
    tellLabels(first);
    const Zebra second(port());
    wait();
    first.end();
    ASSERT_TRUE(soon([&] { return hasLogged("zebra has disconnected; its routes stay"); }));
    expectServed(second);
    EXPECT_EQ(now.labels(), labelRoutes);
    EXPECT_FALSE(hasLogged("zebra has connected again"));
}

TEST_F(FpmConnections, AConnectionThatSendsAnythingElseIsClosed) {
    serve();
    const Zebra zebra(port());
    tellLabels(zebra);
    const struct {
        Bytes said;
        std::string logged;
    } cases[] = {
        {ofText("GET / HTTP/1.0\r\n\r\n"),
         "a connection beside zebra's is closed: at byte 0: frame of version 71 instead of 1: "},
        {{1, 1, 0, 3}, "frame length 3 is less than its header's 4"},
        {{1, 2, 0, 4}, "frame of type 2 is not netlink"},
    };
    for (const auto& [said, logged] : cases) {
        const Zebra other(port());
        other.say(said);
        EXPECT_TRUE(soon([&other = other] { return !other.say(Bytes(1)); })) << logged;
        EXPECT_TRUE(hasLogged(logged)) << logged;
    }
    expectServed(zebra);
    EXPECT_EQ(connections(), 1U);
}

TEST_F(FpmConnections, FourWaitAndTheOldestGoesWhenThereIsAFifth) {
    serve();
    const Zebra zebra(port());
    tellLabels(zebra);
    const Zebra oldest(port());
    const Zebra kept(port());
    const Zebra third(port());
    const Zebra fourth(port());
    wait();
    EXPECT_FALSE(hasLogged("too many connections wait"));
    const Zebra fifth(port());
    EXPECT_TRUE(soon([&] { return hasLogged("too many connections wait beside zebra's"); }));
    EXPECT_TRUE(soon([&] { return !oldest.say(Bytes(1, 1)); }));
    EXPECT_EQ(connections(), 1U);
    expectServed(kept);
    EXPECT_EQ(connections(), 2U);
}

TEST_F(FpmConnections, OneWithoutARouteRemovesNothing) {
    serve(std::chrono::milliseconds(1));
    Zebra zebra(port());
    tellLabels(zebra);
    zebra.end();
    ASSERT_TRUE(soon([&] { return hasLogged("zebra has disconnected"); }));
    Bytes half = recorded("plain_routes");
    half.resize(10);
    const std::vector<Bytes> sayings{{}, half, frame({}), frame(message(RTM_NEWNEXTHOP, Bytes(8)))};
    for (const Bytes& said : sayings) {
        const Zebra other(port());
        other.say(said);
        wait(std::chrono::milliseconds(60));
        EXPECT_EQ(now.labels(), labelRoutes) << said.size() << " bytes";
    }
    EXPECT_EQ(connections(), 1 + sayings.size());
}

TEST_F(FpmConnections, AWithdrawalCountsAsARoute) {
    serve(std::chrono::milliseconds(30));
    Zebra first(port());
    tellLabels(first);
    first.end();
    const Zebra second(port());
    second.tell("withdrawals");
    EXPECT_TRUE(soon([&] { return now.labels() == 0; }));
}

TEST_F(FpmConnections, RoutesThatChangeAllTheTimeKeepTheOthersForTenTimesTheQuietFromTheFirst) {
    serve(std::chrono::milliseconds(100));
    Zebra first(port());
    tellLabels(first);
    first.end();
    const Zebra second(port());
    wait(std::chrono::milliseconds(1100)); // silent: none of the ten times
    expectServed(second);
    EXPECT_EQ(now.labels(), labelRoutes);
    EXPECT_TRUE(soon([&] {
        second.tell("plain_routes");
        return now.labels() == 0;
    }));
}

} // namespace FpmConnectionsTest
