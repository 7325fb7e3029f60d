#include "Wire/Checksum.h"

namespace Wire {

namespace {

std::uint16_t folded(std::uint64_t sum) noexcept {
    while (sum > 0xffff) {
        sum = (sum & 0xffffU) + (sum >> 16U);
    }
    return static_cast<std::uint16_t>(sum);
}

} // namespace

std::uint16_t onesSum(Bytes bytes) noexcept {
    std::uint64_t sum = 0;
    std::size_t at = 0;
    // Both halves of a word add up to the same when they are folded (RFC 1071 section 2).
    for (; bytes.size() - at >= sizeof(std::uint32_t); at += sizeof(std::uint32_t)) {
        sum += Lumo::NetU32::load(bytes.data() + at).value();
    }
    for (unsigned int shift = 24; at < bytes.size(); ++at, shift -= 8) {
        sum += std::uint64_t{bytes[at]} << shift;
    }
    return folded(sum);
}

std::uint16_t pseudoHeaderSum(const Lumo::IpGenAddr& source, const Lumo::IpGenAddr& destination,
                              std::uint8_t protocol, std::size_t length) noexcept {
    assert(source.family() == destination.family());
    // The bytes that an IPv4 address does not use are zero, and add nothing.
    return folded(std::uint64_t{protocol} + length + onesSum(source.bytes()) +
                  onesSum(destination.bytes()));
}

bool completeChecksum(WritableBytes bytes, std::size_t start, std::size_t offset) noexcept {
    if (start > bytes.size() || offset + sizeof(std::uint16_t) > bytes.size() - start) {
        return false;
    }
    const auto checksum = static_cast<std::uint16_t>(~onesSum(bytes.subspan(start)));
    Lumo::NetU16(checksum != 0 ? checksum : std::uint16_t{0xffff})
        .store(bytes.data() + start + offset);
    return true;
}

} // namespace Wire
