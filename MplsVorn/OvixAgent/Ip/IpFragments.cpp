#include "Ip/IpFragments.h"

#include <algorithm>

#include "Ip/InternetChecksum.h"
#include "Lumo/NetInt.h"

namespace OvixAgent {

namespace {

constexpr std::size_t fixedSize = 20;
constexpr std::size_t lengthAt = 2;
constexpr std::size_t fragmentAt = 6; ///< flags, and the offset in units of 8 bytes
constexpr std::size_t checksumAt = 10;
constexpr std::size_t unit = 8;

constexpr std::uint16_t dontFragment = 0x4000;
constexpr std::uint16_t moreFragments = 0x2000;
constexpr std::uint16_t offsetMask = 0x1fff;

std::uint16_t u16(const std::uint8_t* at) noexcept {
    return Lumo::NetU16::load(at).value();
}

void store(std::size_t value, std::uint8_t* at) noexcept {
    Lumo::NetU16(static_cast<std::uint16_t>(value)).store(at);
}

constexpr std::size_t wholeUnits(std::size_t bytes) noexcept {
    return bytes - bytes % unit;
}

/// The length of the option that `options` start with; 0 when it is damaged.
std::size_t optionSize(std::span<const std::uint8_t> options) noexcept {
    constexpr std::uint8_t noOperation = 1;
    if (options[0] == noOperation) {
        return 1;
    }
    const bool isWhole = options.size() >= 2 && options[1] >= 2 && options[1] <= options.size();
    return isWhole ? options[1] : 0;
}

/// Appends the options that belong into every fragment, and fills up the last word with ends of the
/// list, which are zero. False when the options are damaged.
bool appendCopied(std::span<const std::uint8_t> options, IpFragment& header) noexcept {
    constexpr std::uint8_t endOfList = 0;
    constexpr std::uint8_t copied = 0x80;
    while (!options.empty() && options[0] != endOfList) {
        const std::size_t size = optionSize(options);
        if (size == 0) {
            return false;
        }
        if ((options[0] & copied) != 0) {
            std::copy_n(options.begin(), size, header.headerBytes.begin() + header.headerSize);
            header.headerSize += size;
        }
        options = options.subspan(size);
    }
    header.headerSize = (header.headerSize + 3) / 4 * 4;
    return true;
}

} // namespace

std::optional<IpFragments> IpFragments::of(std::span<const std::uint8_t> packet,
                                           std::size_t mtu) noexcept {
    if (packet.size() < fixedSize || packet[0] >> 4U != 4) {
        return std::nullopt;
    }
    const std::size_t headerSize = (packet[0] & 0x0fU) * std::size_t{4};
    const std::size_t length = u16(packet.data() + lengthAt);
    const std::uint16_t fragment = u16(packet.data() + fragmentAt);
    // More than an MTU with room for the header is also no less than the header.
    const bool isWhole = headerSize >= fixedSize && headerSize <= packet.size();
    if (!isWhole || (fragment & dontFragment) != 0 || length <= mtu || mtu < headerSize + unit) {
        return std::nullopt;
    }
    IpFragments cut;
    cut.packet_ = packet.first(std::min(length, packet.size()));
    cut.headerSize_ = headerSize;
    cut.dataSize_ = length - headerSize;
    if ((fragment & offsetMask) + (cut.dataSize_ - 1) / unit > offsetMask) {
        return std::nullopt;
    }
    std::copy_n(packet.begin(), fixedSize, cut.later_.headerBytes.begin());
    cut.later_.headerSize = fixedSize;
    if (!appendCopied(packet.subspan(fixedSize, headerSize - fixedSize), cut.later_)) {
        return std::nullopt;
    }
    const std::size_t lastRoom = mtu - cut.later_.headerSize;
    cut.firstSize_ = wholeUnits(mtu - headerSize);
    cut.laterSize_ = wholeUnits(lastRoom);
    const std::size_t rest = cut.dataSize_ - cut.firstSize_;
    const std::size_t between =
        rest <= lastRoom ? 0 : (rest - lastRoom + cut.laterSize_ - 1) / cut.laterSize_;
    cut.count_ = 2 + between;
    return cut;
}

IpFragment IpFragments::at(std::size_t index) const noexcept {
    IpFragment fragment = later_;
    if (index == 0) {
        std::copy_n(packet_.begin(), headerSize_, fragment.headerBytes.begin());
        fragment.headerSize = headerSize_;
    }
    const bool isLast = index + 1 == count_;
    const std::size_t from = index == 0 ? 0 : firstSize_ + (index - 1) * laterSize_;
    const std::size_t size = isLast ? dataSize_ - from : index == 0 ? firstSize_ : laterSize_;
    const std::span<const std::uint8_t> data = packet_.subspan(headerSize_);
    fragment.payload = data.subspan(std::min(from, data.size()));
    fragment.payload = fragment.payload.first(std::min(size, fragment.payload.size()));
    fragment.snapped = size - fragment.payload.size();

    std::uint8_t* header = fragment.headerBytes.data();
    header[0] = static_cast<std::uint8_t>(0x40U | fragment.headerSize / 4);
    store(fragment.headerSize + size, header + lengthAt);
    const std::size_t place = u16(header + fragmentAt) + from / unit;
    store(isLast ? place : place | moreFragments, header + fragmentAt);
    store(0, header + checksumAt);
    completeChecksum({header, fragment.headerSize}, 0, checksumAt);
    return fragment;
}

} // namespace OvixAgent
