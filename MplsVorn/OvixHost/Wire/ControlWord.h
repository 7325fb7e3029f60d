#pragma once

#include "Wire/View.h"

namespace Wire {

/// A pseudowire control word (RFC 4385 section 3):
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |0 0 0 0| Flags |FRG|  Length   |       Sequence Number         |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///
/// The first four bits are 1 in the header of an associated channel (RFC 4385 section 5).
template <typename Byte>
class BasicControlWord : public View<4, Byte> {
  public:
    using View<4, Byte>::View;

    bool isData() const noexcept { return this->u8(0) >> 4U == 0; }
    bool isAssociatedChannel() const noexcept { return this->u8(0) >> 4U == 1; }

    /// No flags, a whole frame, frames not numbered.
    void clear() const noexcept { this->put32(0, 0); }
};
using ControlWord = BasicControlWord<const std::uint8_t>;
using ControlWordWriter = BasicControlWord<std::uint8_t>;

} // namespace Wire
