#include <random>

#include "FpmServerTesting.h"

namespace FpmServerMutationTest {

namespace {

using namespace PublishingTesting;
using TestSupport::Fpm::recorded;
using TestSupport::Fpm::recordings;

class FpmServerMutation : public FpmServerFixture {};

} // namespace

TEST_F(FpmServerMutation, RecordedBytesWithSomeWrongNeverEndTheServer) {
    serve(std::chrono::milliseconds(1));
    std::mt19937 random(2026);
    for (unsigned round = 0; round < 300; ++round) {
        const Zebra zebra(port());
        ASSERT_TRUE(soon([&] { return connections() == round + 1; })) << "round " << round;
        std::vector<std::uint8_t> bytes;
        for (int i = 0; i < 3; ++i) {
            const auto more = recorded(recordings[random() % recordings.size()]);
            bytes.insert(bytes.end(), more.begin(), more.end());
        }
        for (unsigned left = 1 + static_cast<unsigned>(random() % 10); left > 0; --left) {
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        }
        zebra.say({bytes.data(), bytes.size() - random() % 50}); // may be cut off in between
        ASSERT_FALSE(hasEnded()) << "round " << round;
    }
    const Zebra last(port());
    last.tell("label_routes");
    EXPECT_TRUE(
        soon([&] { return now.transit(1000) == "swap 2000 via 192.0.2.2 west0 weight 1"; }));
    EXPECT_FALSE(hasEnded());
}

} // namespace FpmServerMutationTest
