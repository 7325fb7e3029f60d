#include "State/Ipv4Lookup.h"

#include "PrefixModel.h"

namespace Ipv4LookupTest {

using namespace OvixAgent;

TEST(Ipv4Lookup, AnswersAsAskingEveryPrefixDoesWhateverComesAndGoes) {
    for (unsigned seed = 0; seed < 2; ++seed) {
        LookupComparison<Ipv4Lookup>(seed, 32).run(600);
    }
}

TEST(Ipv4Lookup, HasNothingBeforeTheFirstPrefix) {
    const Ipv4Lookup lookup;
    EXPECT_EQ(lookup.find({10, 0, 0, 1}), noPrefix);
    EXPECT_EQ(lookup.memory(), 0U);
}

TEST(Ipv4Lookup, AnotherValueOfAPrefixTakesThePlaceOfTheFirst) {
    Ipv4Lookup lookup;
    lookup.insert({10, 1}, 16, 0);
    lookup.insert({10, 1, 2}, 24, 1);
    lookup.insert({10, 1}, 16, 2);
    EXPECT_EQ(lookup.find({10, 1, 3, 4}), 2U);
    EXPECT_EQ(lookup.find({10, 1, 2, 3}), 1U);
}

TEST(Ipv4Lookup, PagesAreUsedAgain) {
    Ipv4Lookup lookup;
    lookup.insert({10, 0, 2, 3}, 32, 0);
    const std::size_t memory = lookup.memory();
    for (std::uint8_t i = 0; i < 100; ++i) {
        lookup.erase({10, i, 2, 3}, 32, noPrefix);
        lookup.insert({10, static_cast<std::uint8_t>(i + 1), 2, 3}, 32, 0);
    }
    EXPECT_EQ(lookup.memory(), memory);
}

} // namespace Ipv4LookupTest
