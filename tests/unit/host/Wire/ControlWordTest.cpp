#include "Wire/ControlWord.h"

#include "WireTesting.h"

namespace ControlWordTest {

namespace {

using namespace TestSupport;
using Bytes = std::vector<std::uint8_t>;

TEST(WireControlWord, FirstNibbleSaysWhatFollows) {
    for (std::uint32_t nibble = 0; nibble < 16; ++nibble) {
        const Bytes bytes{static_cast<std::uint8_t>(nibble << 4U | 3U), 0, 0, 9};
        const Wire::ControlWord word(bytes);
        EXPECT_EQ(word.isData(), nibble == 0);
        EXPECT_EQ(word.isAssociatedChannel(), nibble == 1);
        expectEmptyWhenShort<Wire::ControlWord>(bytes);
    }
}

TEST(WireControlWord, ClearWritesItsFourBytes) {
    Bytes bytes = untouched(5);
    Wire::ControlWordWriter(bytes).clear();
    EXPECT_EQ(bytes, (Bytes{0, 0, 0, 0, 0xa5}));
}

} // namespace

} // namespace ControlWordTest
