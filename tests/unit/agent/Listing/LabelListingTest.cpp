#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <utility>

#include "Listing/Listings.h"
#include "State/OvixLfibCounterCollection.h"

namespace LabelListingTest {

using Counter::OvixLfibCounterCollection;
using Counter::PktCounterCollectionHolder;
using nlohmann::json;
using OvixAgent::labelListing;
using OvixAgent::Listing;
using OvixAgent::topLabelListing;

std::vector<std::pair<std::uint32_t, std::uint64_t>> packetsOf(Listing listing) {
    std::string all;
    std::string entry;
    while (listing(entry)) {
        all += all.empty() || entry.empty() ? "" : ",";
        all += std::exchange(entry, {});
    }
    std::vector<std::pair<std::uint32_t, std::uint64_t>> found;
    for (const json& label : json::parse("[" + all + "]")) {
        EXPECT_EQ(label.at("bytes"), label.at("packets").get<std::uint64_t>() * 100);
        found.emplace_back(label.at("label"), label.at("packets"));
    }
    return found;
}

class LabelListing : public testing::Test {
  protected:
    LabelListing() {
        holder->collectionIs(counters);
        for (const auto& [label, packets] : all) {
            for (std::uint64_t i = 0; i < packets; ++i) {
                counters->countBytes(label, 100);
            }
        }
    }
    using Packets = std::vector<std::pair<std::uint32_t, std::uint64_t>>;
    const Packets all{{16, 3}, {63, 1}, {64, 9}, {1000, 3}, {524288, 7}, {1048575, 2}};
    Ptr<OvixLfibCounterCollection> counters = Tessel::make<OvixLfibCounterCollection>("labels");
    Ptr<PktCounterCollectionHolder> holder = Tessel::make<PktCounterCollectionHolder>();
};

TEST_F(LabelListing, HasEachLabelOnceInOrder) {
    EXPECT_EQ(packetsOf(labelListing(*holder)), all);
}

TEST_F(LabelListing, TheBusiestComeFirst) {
    EXPECT_EQ(packetsOf(topLabelListing(*holder, 4)),
              (Packets{{64, 9}, {524288, 7}, {16, 3}, {1000, 3}}));
    EXPECT_EQ(packetsOf(topLabelListing(*holder, 100)).size(), all.size());
    EXPECT_TRUE(packetsOf(topLabelListing(*holder, 0)).empty());
}

TEST_F(LabelListing, NoStepLooksAtMoreThanAFewLabels) {
    Listing walk = topLabelListing(*holder, 4);
    std::string entry;
    int steps = 0;
    while (entry.empty() && walk(entry)) {
        ++steps;
    }
    EXPECT_GE(steps, 1048576 / 1024);
}

TEST(FirstOf, EndsAList) {
    int left = 10;
    const Listing ten = [&left](std::string& entry) {
        entry = left % 2 == 0 ? "{}" : ""; // a step may find nothing
        return left-- > 0;
    };
    Listing some = OvixAgent::firstOf(ten, 3);
    std::string entry;
    int found = 0;
    while (some(entry)) {
        found += std::exchange(entry, {}).empty() ? 0 : 1;
    }
    EXPECT_EQ(found, 3);
    EXPECT_GT(left, 3);
}

} // namespace LabelListingTest
