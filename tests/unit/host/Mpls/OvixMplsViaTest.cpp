#include "Mpls/OvixMplsVia.h"

#include "TableTesting.h"

namespace OvixMplsViaTest {

namespace {

using namespace TableTesting;
using Ovix::OvixMplsVia;

TEST(OvixMplsVia, AnyFieldAloneMakesItValidAndDifferent) {
    const OvixMplsVia none{};
    EXPECT_FALSE(none);
    ASSERT_EQ(fields().size(), 15U);
    for (const Field& field : fields()) {
        OvixMplsVia via;
        field.change(via);
        EXPECT_TRUE(static_cast<bool>(via)) << field.name;
        EXPECT_FALSE(via.isEq(none)) << field.name;
        EXPECT_FALSE(none.isEq(via)) << field.name;
        EXPECT_TRUE(OvixMplsVia(via).isEq(via)) << field.name;
    }
}

TEST(OvixMplsVia, ATrafficClassIsSetFromZeroToSeven) {
    for (std::uint32_t value = 0; value < 16; ++value) {
        OvixMplsVia via;
        via.trafficClass = value;
        const auto tc = via.labelOperation().tc;
        EXPECT_EQ(tc.has_value(), value <= 7) << value;
        if (tc) {
            EXPECT_EQ(*tc, value);
        }
    }
    EXPECT_FALSE(OvixMplsVia().labelOperation().tc);
}

TEST(OvixMplsVia, ClassesComeBackOneByOne) {
    using Ovix::TrafficClassField;
    EXPECT_EQ(TrafficClassField::of({}, {}, false).value(), TrafficClassField::unset);
    for (std::uint8_t tc = 0; tc < 8; ++tc) {
        OvixMplsVia via;
        via.trafficClass = TrafficClassField::of({}, tc, true).value();
        EXPECT_FALSE(via.labelOperation().tc);
        EXPECT_EQ(via.labelOperation().pushedTc, tc);
        EXPECT_TRUE(via.labelOperation().exposesTc);
        via.trafficClass = TrafficClassField::of(tc, {}, false).value();
        EXPECT_EQ(via.labelOperation().tc, tc);
        EXPECT_FALSE(via.labelOperation().pushedTc);
        EXPECT_FALSE(via.labelOperation().exposesTc);
    }
}

TEST(OvixMplsVia, APushTtlThatIsNoneIsTheGreatest) {
    const std::vector<std::pair<std::uint16_t, unsigned>> cases = {
        {0, 255}, {1, 1}, {64, 64}, {255, 255}, {256, 255}, {0xffff, 255}};
    for (const auto& [value, expected] : cases) {
        OvixMplsVia via;
        via.pushTtl = value;
        EXPECT_EQ(via.labelOperation().ttl, expected) << value;
    }
}

TEST(OvixMplsVia, TheFecIdHasTwoHalves) {
    OvixMplsVia via;
    via.fecIdHigh = 0x01020304;
    via.fecIdLow = 0x8a0b0c0d;
    EXPECT_EQ(via.fecId(), 0x010203048a0b0c0dU);
}

TEST(OvixMplsVia, LabelsComeBackOutermostFirst) {
    OvixMplsVia via;
    EXPECT_EQ(via.labelOperation().depth(), 0U);
    ASSERT_TRUE(via.labelsIs(std::vector<std::uint8_t>{0x0f, 0xff, 0xff, 0, 0, 16}));
    ASSERT_EQ(via.labelOperation().depth(), 2U);
    EXPECT_EQ(via.labelOperation().label(0).value(), 0xfffffU);
    EXPECT_EQ(via.labelOperation().label(1).value(), 16U);
}

TEST(OvixMplsVia, HasRoomForThirtyThreeLabels) {
    OvixMplsVia via;
    ASSERT_TRUE(via.labelsIs(std::vector<std::uint8_t>(std::size_t{33} * 3, 1)));
    EXPECT_EQ(via.labelOperation().depth(), 33U);
    EXPECT_FALSE(via.labelsIs(std::vector<std::uint8_t>(std::size_t{34} * 3, 1)));
    EXPECT_EQ(via.labelOperation().depth(), 0U);
}

} // namespace

} // namespace OvixMplsViaTest
