#include "route/TextTable.h"

#include <gtest/gtest.h>

namespace TextTableTest {

using OvixCtl::TextTable;

TEST(TextTable, ColumnsStandBelowEachOtherAndNumbersAtTheRight) {
    using enum TextTable::Align;
    TextTable table({{"Name", left}, {"Number", right}, {"Last", left}});
    table.measure({"long name", "7", ""});
    table.measure({"", "12345678", "x"});
    EXPECT_EQ(table.heading(), "Name         Number  Last\n");
    EXPECT_EQ(table.line({"long name", "7", ""}), "long name         7  -\n");
    EXPECT_EQ(table.line({"", "12345678", "x"}), "-          12345678  x\n");
}

} // namespace TextTableTest
