#include "framing/NetlinkMessages.h"

#include <algorithm>
#include <linux/netlink.h>
#include <string>

namespace OvixFpm {

std::optional<std::variant<NetlinkMessage, Refused>> NetlinkMessages::next() {
    const Bytes rest = Bytes(frame_.payload).subspan(read_);
    if (rest.empty()) {
        return std::nullopt;
    }
    const std::uint64_t offset = frame_.offset + read_;
    read_ = frame_.payload.size(); // unless the length of this message is right
    if (rest.size() < sizeof(nlmsghdr)) {
        return Refused(offset, rest,
                       std::to_string(rest.size()) + " bytes are left of the frame, fewer than a "
                                                     "message header's 16");
    }
    const auto header = readHead<nlmsghdr>(rest, "message header");
    const std::size_t length = header.nlmsg_len;
    if (length < sizeof(nlmsghdr)) {
        return Refused(offset, rest,
                       "message length " + std::to_string(length) +
                           " is less than its header's 16");
    }
    if (length > rest.size()) {
        return Refused(offset, rest,
                       "message length " + std::to_string(length) + " is more than the " +
                           std::to_string(rest.size()) + " bytes left of the frame");
    }
    // The padding of the last message may be left out.
    read_ -= rest.size() - std::min(rest.size(), std::size_t{NLMSG_ALIGN(length)});
    return NetlinkMessage{offset, header.nlmsg_type, rest.first(length),
                          rest.first(length).subspan(sizeof(nlmsghdr))};
}

} // namespace OvixFpm
