#include "Ovix/trace/Trace.h"

#include <gtest/gtest.h>
#include <tuple>

namespace TraceTest {

namespace {

using namespace Ovix;

class Trace : public ::testing::Test {
  protected:
    using Row = std::tuple<std::string, unsigned, std::string>;

    Trace() {
        TraceOutput::instance().textSinkIs(
            [this](std::string_view name, unsigned level, std::string_view line) {
                text.emplace_back(name, level, line);
            });
    }
    ~Trace() override {
        source.ringLevelIs(TraceSource::off);
        TraceOutput::instance().textLevelOfAllIs(TraceSource::off);
        TraceOutput::instance().textSinkIs([](std::string_view, unsigned, std::string_view) {});
    }
    static std::vector<Row> of(const TraceRing& ring) {
        std::vector<Row> rows;
        ring.visit([&](const TraceRing::Record& record) {
            rows.emplace_back(record.tag, record.level, record.line.view());
        });
        return rows;
    }
    static TraceLine lineOf(std::string_view words) {
        TraceLine line;
        line << words;
        return line;
    }

    TraceSource& source = TraceSource::named("Tag", "Text::Tag");
    std::vector<Row> text;
};

TEST_F(Trace, ASourceIsOnePerTagAndName) {
    EXPECT_EQ(&TraceSource::named("Tag", "Text::Tag"), &source);
    EXPECT_NE(&TraceSource::named("Tag", "Text::Other"), &source);
    EXPECT_NE(&TraceSource::named("Other", "Text::Tag"), &source);
    EXPECT_EQ(source.ringTag(), "Tag");
    EXPECT_EQ(source.textName(), "Text::Tag");
}

TEST_F(Trace, EachDestinationTakesTheLevelsUpToItsOwn) {
    for (int ringLevel = -1; ringLevel <= 2; ++ringLevel) {
        for (int textLevel = -1; textLevel <= 2; ++textLevel) {
            for (unsigned level = 0; level <= 2; ++level) {
                source.ringLevelIs(ringLevel);
                source.textLevelIs(textLevel);
                text.clear();
                const std::string mark = "round " + std::to_string(ringLevel) + " " +
                                         std::to_string(textLevel) + " " + std::to_string(level);
                source.trace(level, "round ", ringLevel, " ", textLevel, " ", level);
                const bool inRing = static_cast<int>(level) <= ringLevel;
                const bool inText = static_cast<int>(level) <= textLevel;
                EXPECT_EQ(source.enabled(level), inRing || inText) << mark;
                const auto ring = of(TraceOutput::instance().ring());
                EXPECT_EQ(!ring.empty() && ring.back() == Row("Tag", level, mark), inRing) << mark;
                EXPECT_EQ(text, inText ? std::vector<Row>{Row("Text::Tag", level, mark)}
                                       : std::vector<Row>{});
            }
        }
    }
}

TEST_F(Trace, TheTextOfAllSourcesIsSwitchedEvenOfThoseToCome) {
    TraceOutput::instance().textLevelOfAllIs(1);
    EXPECT_EQ(source.textLevel(), 1);
    EXPECT_EQ(source.ringLevel(), TraceSource::off);
    EXPECT_EQ(TraceSource::named("Tag", "Text::Later").textLevel(), 1);
    TraceOutput::instance().textLevelOfAllIs(TraceSource::off);
    EXPECT_EQ(TraceSource::named("Tag", "Text::Later").textLevel(), TraceSource::off);
}

TEST_F(Trace, WithoutASinkTheTextIsDiscarded) {
    source.textLevelIs(0);
    TraceOutput::instance().textSinkIs({});
    source.trace(0, "discarded");
    EXPECT_TRUE(text.empty());
}

TEST_F(Trace, ARingKeepsTheLatestOldestFirst) {
    TraceRing ring(3);
    EXPECT_TRUE(of(ring).empty());
    for (const char* words : {"a", "b", "c", "d"}) {
        ring.write("Tag", 0, lineOf(words));
    }
    EXPECT_EQ(of(ring), (std::vector<Row>{{"Tag", 0U, "b"}, {"Tag", 0U, "c"}, {"Tag", 0U, "d"}}));
    TraceRing none(0);
    none.write("Tag", 0, lineOf("a"));
    EXPECT_TRUE(of(none).empty());
}

TEST_F(Trace, ALineHoldsTextAndNumbersAndCutsWhatDoesNotFit) {
    TraceLine line;
    line << "Pkt " << 0xffffffffffffffffULL << ": " << -1 << " " << std::uint8_t{7};
    EXPECT_EQ(line.view(), "Pkt 18446744073709551615: -1 7");
    TraceLine full;
    full << std::string(TraceLine::capacity - 1, 'x') << "yz" << 5;
    EXPECT_EQ(full.view(), std::string(TraceLine::capacity - 1, 'x') + "y");
}

} // namespace

} // namespace TraceTest
