#include "Mpls/OvixMplsVia.h"

#include "TableTesting.h"

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

TEST(OvixMplsVia, ATrafficClassIsToldFromZeroToSeven) {
    for (std::uint32_t told = 0; told < 16; ++told) {
        OvixMplsVia via;
        via.trafficClass = told;
        const auto tc = via.labelOperation().tc;
        EXPECT_EQ(tc.has_value(), told <= 7) << told;
        if (tc) {
            EXPECT_EQ(*tc, told);
        }
    }
    EXPECT_FALSE(OvixMplsVia().labelOperation().tc);
}

TEST(OvixMplsVia, APushTtlThatIsNoneIsTheGreatest) {
    const std::vector<std::pair<std::uint16_t, unsigned>> cases = {
        {0, 255}, {1, 1}, {64, 64}, {255, 255}, {256, 255}, {0xffff, 255}};
    for (const auto& [told, expected] : cases) {
        OvixMplsVia via;
        via.pushTtl = told;
        EXPECT_EQ(via.labelOperation().ttl, expected) << told;
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

TEST(OvixMplsVia, AShallowStackAfterADeepOneIsHeldInPlaceAgain) {
    OvixMplsVia via;
    ASSERT_TRUE(via.labelsIs(std::vector<std::uint8_t>(std::size_t{34} * 3, 1)));
    EXPECT_TRUE(via.labelsInterned);
    EXPECT_EQ(via.labelOperation().depth(), 34U);
    ASSERT_TRUE(via.labelsIs(std::vector<std::uint8_t>(std::size_t{33} * 3, 1)));
    EXPECT_FALSE(via.labelsInterned);
    EXPECT_EQ(via.labelOperation().depth(), 33U);
}

TEST(OvixMplsVia, AnInternedStackThatIsNotThereReadsAsNoLabels) {
    OvixMplsVia via;
    via.labelsInterned = true;
    const std::vector<std::string> numbers = {"", std::string(3, '\1'), std::string(5, '\1'),
                                              std::string(4, '\0'), std::string(4, '\x7f')};
    for (const std::string& number : numbers) {
        via.labels = std::string_view(number);
        EXPECT_EQ(via.labelOperation().depth(), 0U) << number.size();
    }
}

} // namespace
