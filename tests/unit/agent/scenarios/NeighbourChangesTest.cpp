#include <gtest/gtest.h>

#include "ConfigTesting.h"
#include "State/Neighbours.h"

namespace NeighbourChangesTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

const std::string links = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02"}
)";

const std::string withOne = links + R"(
neighbours:
  - {address: 10.0.1.2, port: west, mac: "02:00:00:00:01:02"}
)";

constexpr PortIndex west = 0;
constexpr PortIndex east = 1;
constexpr Lumo::EthAddr configured{2, 0, 0, 0, 1, 2};
constexpr Lumo::EthAddr learnt{2, 0, 0, 0, 9, 9};
constexpr Lumo::EthAddr moved{2, 0, 0, 0, 8, 8};

Lumo::IpGenAddr address(const std::string& text) {
    return Lumo::IpGenAddr::fromText(text);
}

class NeighbourChanges : public testing::Test {
  protected:
    std::optional<Lumo::EthAddr> at(const std::string& text, PortIndex port = west) const {
        const Lumo::EthAddr* found = neighbours.find(address(text), port);
        return found != nullptr ? std::optional(*found) : std::nullopt;
    }
    std::optional<Lumo::EthAddr> only(PortIndex port) const {
        const Lumo::EthAddr* found = neighbours.only(port);
        return found != nullptr ? std::optional(*found) : std::nullopt;
    }

    Neighbours neighbours{configOf(withOne, "test.yaml")};
};

} // namespace

TEST_F(NeighbourChanges, OneThatIsLearntIsFoundUntilForgotten) {
    neighbours.learn(address("10.0.1.9"), west, learnt);
    EXPECT_EQ(at("10.0.1.9"), learnt);
    EXPECT_EQ(at("10.0.1.9", east), std::nullopt);
    neighbours.learn(address("10.0.1.9"), west, moved);
    EXPECT_EQ(at("10.0.1.9"), moved);
    neighbours.forget(address("10.0.1.9"), east);
    EXPECT_EQ(at("10.0.1.9"), moved);
    neighbours.forget(address("10.0.1.9"), west);
    neighbours.forget(address("10.0.1.9"), west);
    EXPECT_EQ(at("10.0.1.9"), std::nullopt);
}

TEST_F(NeighbourChanges, OneOfTheConfigurationStaysAsItSays) {
    neighbours.learn(address("10.0.1.2"), west, learnt);
    EXPECT_EQ(at("10.0.1.2"), configured);
    neighbours.forget(address("10.0.1.2"), west);
    EXPECT_EQ(at("10.0.1.2"), configured);
}

TEST_F(NeighbourChanges, TheOneDeviceOfALinkFollowsWhatIsLearnt) {
    EXPECT_EQ(only(west), configured);
    EXPECT_EQ(only(east), std::nullopt);
    neighbours.learn(address("10.0.1.9"), west, configured); // another address of the same device
    EXPECT_EQ(only(west), configured);
    neighbours.learn(address("10.0.1.9"), west, learnt);
    EXPECT_EQ(only(west), std::nullopt);
    neighbours.forget(address("10.0.1.9"), west);
    EXPECT_EQ(only(west), configured);
    neighbours.learn(address("10.0.2.9"), east, learnt);
    EXPECT_EQ(only(east), learnt);
    neighbours.learn(address("10.0.2.9"), east, moved);
    EXPECT_EQ(only(east), moved);
    neighbours.forget(address("10.0.2.9"), east);
    EXPECT_EQ(only(east), std::nullopt);
}

TEST_F(NeighbourChanges, AnotherConfigurationsTakeThePlaceOfThoseThereWere) {
    neighbours.learn(address("10.0.1.9"), west, learnt);
    neighbours.learn(address("10.0.1.8"), west, learnt);
    neighbours.configure(configOf(links + R"(
neighbours:
  - {address: 10.0.1.8, port: west, mac: "02:00:00:00:08:08"}
)",
                                  "test.yaml"));
    EXPECT_EQ(at("10.0.1.2"), std::nullopt);
    EXPECT_EQ(at("10.0.1.9"), learnt);
    EXPECT_EQ(at("10.0.1.8"), moved);
    EXPECT_EQ(only(west), std::nullopt);
    neighbours.forget(address("10.0.1.8"), west);
    EXPECT_EQ(at("10.0.1.8"), moved);
    neighbours.configure(configOf(links, "test.yaml"));
    EXPECT_EQ(at("10.0.1.8"), std::nullopt);
    EXPECT_EQ(only(west), learnt);
}

TEST_F(NeighbourChanges, AFailureIsRememberedUntilCleared) {
    EXPECT_FALSE(neighbours.hasFailed(address("10.0.1.7"), west));
    neighbours.fail(address("10.0.1.7"), west);
    EXPECT_TRUE(neighbours.hasFailed(address("10.0.1.7"), west));
    EXPECT_FALSE(neighbours.hasFailed(address("10.0.1.7"), east));
    EXPECT_FALSE(neighbours.hasFailed(address("10.0.1.8"), west));
    neighbours.clearFailed();
    EXPECT_FALSE(neighbours.hasFailed(address("10.0.1.7"), west));
}

TEST_F(NeighbourChanges, WhoHasAnsweredOnceIsSolicitedWhateverElseIs) {
    const Lumo::IpGenAddr sender = address("192.0.2.1");
    Solicits& wanted = neighbours.wanted();
    neighbours.learn(address("10.0.1.9"), west, learnt);
    neighbours.forget(address("10.0.1.9"), west);
    for (int i = 0; i < 200; ++i) {
        wanted.want({address("10.0.2." + std::to_string(i)), west}, Solicits::By::packet, east,
                    sender);
    }
    EXPECT_EQ(wanted.want({address("10.0.1.9"), west}, Solicits::By::packet, east, sender),
              Solicits::Verdict::waits);
    EXPECT_EQ(wanted.take().front().address, address("10.0.1.9"));
}

} // namespace NeighbourChangesTest
