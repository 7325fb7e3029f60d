#include "State/Ipv6Lookup.h"

#include "PrefixModel.h"

namespace Ipv6LookupTest {

using namespace OvixAgent;

TEST(Ipv6Lookup, AnswersAsAskingEveryPrefixDoesWhateverComesAndGoes) {
    for (unsigned seed = 0; seed < 2; ++seed) {
        LookupComparison<Ipv6Lookup>(seed, 128).run(600);
        LookupComparison<Ipv6Lookup>(seed, 16).run(400);
    }
}

TEST(Ipv6Lookup, HasNothingBeforeTheFirstPrefix) {
    const Ipv6Lookup lookup;
    EXPECT_EQ(lookup.find({0x20, 0x01}), noPrefix);
}

TEST(Ipv6Lookup, ANodeMayHaveADifferentValueInEverySlot) {
    Ipv6Lookup lookup;
    for (unsigned i = 0; i < 256; ++i) {
        lookup.insert({0x20, static_cast<std::uint8_t>(i)}, 16, i);
    }
    for (unsigned i = 0; i < 256; ++i) {
        EXPECT_EQ(lookup.find({0x20, static_cast<std::uint8_t>(i), 7}), i);
    }
}

TEST(Ipv6Lookup, MemoryOfRemovedNodesIsUsedAgain) {
    Ipv6Lookup lookup;
    const PrefixBytes host{0x20, 0x01, 0x0d, 0xb8, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    lookup.insert(host, 128, 0);
    const std::size_t memory = lookup.memory();
    for (int i = 0; i < 100; ++i) {
        lookup.erase(host, 128, noPrefix);
        lookup.insert(host, 128, 0);
    }
    EXPECT_EQ(lookup.memory(), memory);
}

} // namespace Ipv6LookupTest
