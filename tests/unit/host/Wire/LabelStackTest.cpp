#include "Wire/LabelStack.h"

#include "FrameBytes.h"
#include "WireTesting.h"

namespace LabelStackTest {

namespace {

using TestSupport::Raw::join;
using Bytes = std::vector<std::uint8_t>;

TEST(WireLabelWalk, EndsAtTheBottom) {
    const Bytes bytes = join({TestSupport::Raw::stack({{100}, {200}, {300}}), {0x45, 0}});
    Wire::LabelWalk walk(bytes);
    Lumo::MplsLabelEntry entry;
    std::vector<std::uint32_t> labels;
    while (walk.next(entry)) {
        labels.push_back(entry.label().value());
    }
    EXPECT_EQ(labels, (std::vector<std::uint32_t>{100, 200, 300}));
    EXPECT_TRUE(walk.isAtBottom());
    EXPECT_EQ(walk.rest().data(), bytes.data() + 12);
    EXPECT_EQ(walk.rest().size(), 2U);
    EXPECT_FALSE(walk.next(entry));
}

TEST(WireLabelWalk, PassesWholeEntriesOnly) {
    const Bytes bytes = TestSupport::Raw::stack({{100}, {200}});
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        Wire::LabelWalk walk(Wire::Bytes(bytes).first(size));
        Lumo::MplsLabelEntry entry;
        std::size_t entries = 0;
        while (walk.next(entry)) {
            ++entries;
        }
        EXPECT_EQ(entries, size / 4) << size;
        EXPECT_EQ(walk.isAtBottom(), size == 8) << size;
        EXPECT_EQ(walk.rest().size(), size % 4) << size;
    }
}

} // namespace

} // namespace LabelStackTest
