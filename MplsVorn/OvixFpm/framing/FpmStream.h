#pragma once

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include "framing/Bytes.h"
#include "framing/Refused.h"

namespace OvixFpm {

/// The netlink messages of one frame, and where the first of them stands in the stream.
struct FpmFrame {
    std::uint64_t offset = 0;
    std::vector<std::uint8_t> payload;
};

/// Takes the bytes of one connection of zebra's FPM client in whatever pieces they arrive, and cuts
/// them into frames:
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |  Version (1)  |    Type (1)   |  Length, with these 4 bytes   |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                      netlink messages …
///
/// A frame of another type than netlink is skipped and reported. Behind a header of another version
/// or of an impossible length nobody knows where the next frame begins: it is reported, and the
/// stream is lost; the connection has to be made anew. At most one frame and one piece are kept at
/// a time.
class FpmStream {
  public:
    static constexpr std::uint8_t version = 1;
    static constexpr std::uint8_t netlinkType = 1;
    static constexpr std::size_t headerSize = 4;

    /// The next bytes of the connection. Without effect once the stream is lost.
    void take(Bytes piece);

    /// The next whole frame or the next thing wrong; nothing when more bytes are needed or the
    /// stream is lost.
    std::optional<std::variant<FpmFrame, Refused>> next();

    bool lost() const noexcept { return lost_; }

  private:
    Refused streamLost(const std::string& reason);
    Bytes rest() const noexcept { return Bytes(kept_).subspan(read_); }

    std::vector<std::uint8_t> kept_;
    std::size_t read_ = 0;     ///< how many of the kept bytes have been dealt with
    std::uint64_t before_ = 0; ///< how many bytes of the stream came before those kept
    bool lost_ = false;
};

} // namespace OvixFpm
