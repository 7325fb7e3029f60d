#include "Ip/InternetChecksum.h"

#include "Lumo/NetInt.h"

namespace OvixAgent {

bool completeChecksum(std::span<std::uint8_t> frame, std::size_t start,
                      std::size_t offset) noexcept {
    if (start > frame.size() || offset + sizeof(std::uint16_t) > frame.size() - start) {
        return false;
    }
    const std::span<std::uint8_t> summed = frame.subspan(start);
    std::uint64_t sum = 0;
    std::size_t at = 0;
    // Both halves of a word add up to the same when they are folded (RFC 1071 section 2).
    for (; summed.size() - at >= sizeof(std::uint32_t); at += sizeof(std::uint32_t)) {
        sum += Lumo::NetU32::load(summed.data() + at).value();
    }
    for (unsigned int shift = 24; at < summed.size(); ++at, shift -= 8) {
        sum += static_cast<std::uint64_t>(summed[at]) << shift;
    }
    while (sum > 0xffff) {
        sum = (sum & 0xffffU) + (sum >> 16U);
    }
    // UDP has no checksum 0, and to TCP 0xffff means the same (RFC 768, RFC 1624).
    const auto complement = static_cast<std::uint16_t>(~sum);
    const std::uint16_t checksum = complement != 0 ? complement : std::uint16_t{0xffff};
    Lumo::NetU16(checksum).store(summed.data() + offset);
    return true;
}

} // namespace OvixAgent
