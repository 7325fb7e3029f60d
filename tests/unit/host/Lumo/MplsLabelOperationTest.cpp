#include "Lumo/MplsLabelOperation.h"

#include <array>
#include <gtest/gtest.h>

namespace MplsLabelOperationTest {

using namespace Lumo;

TEST(MplsLabelOperation, ReadsPackedLabelsOutermostFirst) {
    const std::array<std::uint8_t, 9> packed = {0x00, 0x00, 0x10, 0x0f, 0xff,
                                                0xff, 0x01, 0x02, 0x03};
    const UnboundedMplsLabelOperation operation(packed);
    ASSERT_EQ(operation.depth(), 3U);
    EXPECT_EQ(operation.label(0), MplsLabel(16));
    EXPECT_EQ(operation.label(1), MplsLabel(1048575));
    EXPECT_EQ(operation.label(2), MplsLabel(0x10203));
    EXPECT_FALSE(operation.tc.has_value());
    EXPECT_EQ(operation.ttl, 255);
}

TEST(MplsLabelOperation, IsEmptyByDefault) {
    EXPECT_EQ(UnboundedMplsLabelOperation().depth(), 0U);
    EXPECT_TRUE(UnboundedMplsLabelOperation().packed().empty());
}

} // namespace MplsLabelOperationTest
