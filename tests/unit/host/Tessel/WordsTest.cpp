#include "Tessel/Words.h"

#include <gtest/gtest.h>

#include "Lumo/MplsLabelOperation.h"
#include "Mpls/TableDirectory.h"
#include "Mpls/Types.h"
#include "Published/IpRoutes.h"

namespace WordsTest {

namespace {

template <typename Value>
void expectWordsAreUnique() {
    for (const auto& entry : Tessel::words<Value>) {
        EXPECT_EQ(Tessel::wordOf(entry.value), entry.word);
        EXPECT_EQ(Tessel::valueOf<Value>(entry.word), entry.value) << entry.word;
        EXPECT_FALSE(entry.word.empty());
    }
}

TEST(Words, EachWordMeansOneValueAndEachValueHasOneWord) {
    expectWordsAreUnique<Mpls::PayloadType>();
    expectWordsAreUnique<Mpls::TtlMode>();
    expectWordsAreUnique<Mpls::LfibViaType>();
    expectWordsAreUnique<Mpls::LfibViaSetType>();
    expectWordsAreUnique<Mpls::TableId>();
    expectWordsAreUnique<Lumo::MplsLabelAction>();
    expectWordsAreUnique<L3::Route::Kind>();
}

TEST(Words, AValueWithoutAWordIsItsNumber) {
    EXPECT_EQ(Tessel::textOf(Mpls::LfibViaType::externalFec), "external-fec");
    EXPECT_EQ(Tessel::textOf(Mpls::LfibViaType{77}), "77");
    EXPECT_EQ(Tessel::textOf(Lumo::MplsLabelAction::none), "0");
    EXPECT_TRUE(Tessel::wordOf(Mpls::PayloadType{9}).empty());
}

TEST(Words, AWordThatMeansNothingHasNoValue) {
    EXPECT_FALSE(Tessel::valueOf<Mpls::TtlMode>("Pipe"));
    EXPECT_FALSE(Tessel::valueOf<Mpls::TtlMode>(""));
    EXPECT_EQ(Tessel::valueOf<Mpls::TtlMode>("pipe"), Mpls::TtlMode::pipe);
}

TEST(Words, TheListHasTheOrderOfTheTable) {
    EXPECT_EQ(Tessel::wordList<Lumo::MplsLabelAction>(),
              (std::array<std::string_view, 3>{"push", "pop", "swap"}));
}

} // namespace

} // namespace WordsTest
