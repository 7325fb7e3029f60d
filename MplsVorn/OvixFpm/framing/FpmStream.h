#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tessel/Result.h"
#include "framing/Attributes.h"

namespace OvixFpm {

/// Bytes of a stream that are skipped: "at byte 1204: REASON: 3c 00 00 00 …", with the offset of
/// the first byte in the stream of the connection and at most 64 bytes.
Tessel::Refused skipped(std::uint64_t offset, Bytes bytes, const std::string& reason);

/// The netlink messages of one frame, and the offset of the first of them in the stream.
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
/// A frame of another type than netlink is skipped and reported. After a header of another version
/// or with an invalid length the start of the next frame is unknown: it is reported, and the stream
/// is lost; zebra has to connect again. At most one frame and one piece are kept at a time.
class FpmStream {
  public:
    static constexpr std::uint8_t version = 1;
    static constexpr std::uint8_t netlinkType = 1;
    static constexpr std::size_t headerSize = 4;

    /// The next bytes of the connection. Without effect once the stream is lost.
    void take(Bytes piece);

    /// The next whole frame or a refusal; unset when more bytes are needed or the stream is lost.
    std::optional<Tessel::Result<FpmFrame>> next();

    bool lost() const noexcept { return lost_; }

  private:
    Tessel::Refused streamLost(const std::string& reason);
    Bytes rest() const noexcept { return Bytes(kept_).subspan(read_); }

    std::vector<std::uint8_t> kept_;
    std::size_t read_ = 0;     ///< how many of the kept bytes have been read
    std::uint64_t before_ = 0; ///< how many bytes came before the kept ones
    bool lost_ = false;
};

/// One netlink message. `bytes` is all of it, with the header; it lasts as long as the frame.
struct NetlinkMessage {
    std::uint64_t offset; ///< of its first byte in the stream
    std::uint16_t type;   ///< RTM_NEWROUTE and so on
    Bytes bytes;
    Bytes body; ///< behind the header
};

/// Walks the messages of one frame, each at a multiple of four bytes (NLMSG_ALIGN). A message with
/// an invalid length is skipped and reported together with the rest of the frame, as the start of
/// the next message is unknown.
class NetlinkMessages {
  public:
    explicit NetlinkMessages(FpmFrame frame) noexcept : frame_(std::move(frame)) {}

    /// The next message or a refusal; unset at the end of the frame.
    std::optional<Tessel::Result<NetlinkMessage>> next();

  private:
    FpmFrame frame_;
    std::size_t read_ = 0;
};

} // namespace OvixFpm
