#include "State/PktCounter.h"

#include <gtest/gtest.h>

namespace {

TEST(PktCounter, CountsPacketsAndTheirBytes) {
    Counter::PktCounter counter;
    EXPECT_EQ(counter.packets(), 0U);
    EXPECT_EQ(counter.bytes(), 0U);
    counter.countBytes(64);
    counter.countBytes(0);
    counter.countBytes(0xffffffff);
    counter.countBytes(0xffffffff);
    EXPECT_EQ(counter.packets(), 4U);
    EXPECT_EQ(counter.bytes(), 64 + 2 * std::uint64_t{0xffffffff});
    counter.clearCounter();
    EXPECT_EQ(counter.packets(), 0U);
    EXPECT_EQ(counter.bytes(), 0U);
}

} // namespace
