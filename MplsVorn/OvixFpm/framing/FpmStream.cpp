#include "framing/FpmStream.h"

#include <string>

#include "Lumo/NetInt.h"

namespace OvixFpm {

void FpmStream::take(Bytes piece) {
    if (lost_) {
        return;
    }
    kept_.erase(kept_.begin(), kept_.begin() + static_cast<std::ptrdiff_t>(read_));
    before_ += read_;
    read_ = 0;
    kept_.insert(kept_.end(), piece.begin(), piece.end());
}

std::optional<std::variant<FpmFrame, Refused>> FpmStream::next() {
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
    if (frame[1] != netlinkType) {
        return Refused(offset, frame,
                       "frame of type " + std::to_string(frame[1]) + " is not netlink");
    }
    return FpmFrame{offset + headerSize, {frame.begin() + headerSize, frame.end()}};
}

Refused FpmStream::streamLost(const std::string& reason) {
    Refused refused(before_ + read_, rest(), reason);
    lost_ = true;
    kept_ = {};
    read_ = 0;
    return refused;
}

} // namespace OvixFpm
