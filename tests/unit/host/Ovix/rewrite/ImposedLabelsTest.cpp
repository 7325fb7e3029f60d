#include "Ovix/rewrite/ImposedLabels.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "RewriteTesting.h"

namespace ImposedLabelsTest {

using namespace Ovix;
using namespace TestSupport;

TEST(ImposedLabels, OutliveTheOperationTheyWereReadFrom) {
    for (const std::size_t depth : {0U, 1U, 7U, 33U}) {
        std::vector<std::uint32_t> labels;
        for (std::size_t i = 0; i < depth; ++i) {
            labels.push_back(static_cast<std::uint32_t>(0x10203 + i));
        }
        auto source = std::make_unique<Operation>(labels, 5, 33);
        const ImposedLabels imposed(source->get());
        source.reset();
        const ImposedLabels copy = imposed;
        for (const ImposedLabels* held : {&imposed, &copy}) {
            const auto operation = held->operation();
            ASSERT_EQ(operation.depth(), depth);
            for (std::size_t i = 0; i < depth; ++i) {
                EXPECT_EQ(operation.label(i).value(), labels[i]);
            }
            EXPECT_EQ(operation.tc, 5);
            EXPECT_EQ(operation.ttl, 33);
        }
    }
}

TEST(ImposedLabels, RefuseMoreLabelsThanAViaHolds) {
    const Operation deep(std::vector<std::uint32_t>(34, 100));
    EXPECT_THROW(ImposedLabels(deep.get()), Tessel::RangeError);
}

TEST(ImposedLabels, KeepWhatIsUnset) {
    const auto operation = ImposedLabels(Operation({100}).get()).operation();
    EXPECT_FALSE(operation.tc.has_value());
    EXPECT_EQ(operation.ttl, 255);
}

} // namespace ImposedLabelsTest
