#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace TestSupport {

/// Bytes that no writer writes, so that a field left out or a write beside it shows.
inline std::vector<std::uint8_t> untouched(std::size_t size) {
    return std::vector<std::uint8_t>(size, 0xa5);
}

/// The view is empty exactly when the bytes are fewer than its header.
template <typename View>
void expectEmptyWhenShort(const std::vector<std::uint8_t>& whole) {
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        std::vector<std::uint8_t> bytes(whole.begin(),
                                        whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(static_cast<bool>(View(bytes)), size >= View::size) << size;
    }
}

} // namespace TestSupport
