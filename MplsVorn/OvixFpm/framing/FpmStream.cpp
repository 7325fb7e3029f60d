#include "framing/FpmStream.h"

#include <algorithm>
#include <cassert>
#include <linux/netlink.h>

#include "Lumo/NetInt.h"

namespace OvixFpm {

Tessel::Refused skipped(std::uint64_t offset, Bytes bytes, const std::string& reason) {
    static constexpr char digits[] = "0123456789abcdef";
    static constexpr std::size_t maxBytes = 64;
    std::string line = "at byte " + std::to_string(offset) + ": " + reason + ":";
    for (const std::uint8_t byte : bytes.first(std::min(bytes.size(), maxBytes))) {
        line += ' ';
        line += digits[byte >> 4U];
        line += digits[byte & 15U];
    }
    return {line};
}

void FpmStream::take(Bytes piece) {
    if (lost_) {
        return;
    }
    assert(read_ <= kept_.size());
    kept_.erase(kept_.begin(), kept_.begin() + static_cast<std::ptrdiff_t>(read_));
    before_ += read_;
    read_ = 0;
    kept_.insert(kept_.end(), piece.begin(), piece.end());
}

std::optional<Tessel::Result<FpmFrame>> FpmStream::next() {
    const Bytes bytes = rest();
    if (lost_ || bytes.size() < headerSize) {
        return std::nullopt;
    }
    if (bytes[0] != version) {
        return streamLost("frame of version " + std::to_string(bytes[0]) + " instead of 1");
    }
    const std::size_t length = Lumo::NetU16::load(bytes.data() + 2).value();
    if (length < headerSize) {
        return streamLost("frame length " + std::to_string(length) +
                          " is less than its header's 4");
    }
    if (bytes.size() < length) {
        return std::nullopt;
    }
    const std::uint64_t offset = before_ + read_;
    const Bytes frame = bytes.first(length);
    read_ += length;
    assert(read_ <= kept_.size());
    if (frame[1] != netlinkType) {
        return skipped(offset, frame,
                       "frame of type " + std::to_string(frame[1]) + " is not netlink");
    }
    return FpmFrame{offset + headerSize, {frame.begin() + headerSize, frame.end()}};
}

Tessel::Refused FpmStream::streamLost(const std::string& reason) {
    Tessel::Refused refused = skipped(before_ + read_, rest(), reason);
    lost_ = true;
    kept_ = {};
    read_ = 0;
    return refused;
}

std::optional<Tessel::Result<NetlinkMessage>> NetlinkMessages::next() {
    const Bytes rest = Bytes(frame_.payload).subspan(read_);
    if (rest.empty()) {
        return std::nullopt;
    }
    const std::uint64_t offset = frame_.offset + read_;
    read_ = frame_.payload.size(); // unless the length of this message is right
    if (rest.size() < sizeof(nlmsghdr)) {
        return skipped(offset, rest,
                       std::to_string(rest.size()) + " bytes are left of the frame, fewer than a "
                                                     "message header's 16");
    }
    const auto header = readHead<nlmsghdr>(rest, "message header");
    const std::size_t length = header.nlmsg_len;
    if (length < sizeof(nlmsghdr)) {
        return skipped(offset, rest,
                       "message length " + std::to_string(length) +
                           " is less than its header's 16");
    }
    if (length > rest.size()) {
        return skipped(offset, rest,
                       "message length " + std::to_string(length) + " is more than the " +
                           std::to_string(rest.size()) + " bytes left of the frame");
    }
    // The padding of the last message may be left out.
    read_ -= rest.size() - std::min(rest.size(), std::size_t{NLMSG_ALIGN(length)});
    return NetlinkMessage{offset, header.nlmsg_type, rest.first(length),
                          rest.first(length).subspan(sizeof(nlmsghdr))};
}

} // namespace OvixFpm
