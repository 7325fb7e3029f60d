#include "Ip/IpFragments.h"

#include <algorithm>
#include <cassert>

#include "Wire/Ip.h"

namespace OvixAgent {

namespace {

using Wire::Ipv4;

constexpr std::size_t unit = Ipv4::fragmentUnit;

constexpr std::size_t wholeUnits(std::size_t bytes) noexcept {
    return bytes - bytes % unit;
}

/// The size of the first option; 0 when it is damaged.
std::size_t optionSize(std::span<const std::uint8_t> options) noexcept {
    constexpr std::uint8_t noOperation = 1;
    if (options[0] == noOperation) {
        return 1;
    }
    const bool isWhole = options.size() >= 2 && options[1] >= 2 && options[1] <= options.size();
    return isWhole ? options[1] : 0;
}

/// Appends the options that every fragment has (RFC 791 section 3.1), padded to a whole word with
/// ends of the list, which are zero. False when the options are damaged.
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
    const Ipv4 header(packet);
    if (!header || header.headerSize() < Ipv4::size || header.headerSize() > packet.size()) {
        return std::nullopt;
    }
    const std::size_t length = header.totalLength();
    // More than an MTU with room for the header is also no less than the header.
    if (header.dontFragment() || length <= mtu || mtu < header.headerSize() + unit) {
        return std::nullopt;
    }
    IpFragments cut;
    cut.packet_ = packet.first(std::min(length, packet.size()));
    cut.headerSize_ = header.headerSize();
    cut.dataSize_ = length - cut.headerSize_;
    const std::size_t offset = header.fragment() & Ipv4::fragmentOffsetMask;
    if (offset + (cut.dataSize_ - 1) / unit > Ipv4::fragmentOffsetMask) {
        return std::nullopt;
    }
    std::copy_n(packet.begin(), Ipv4::size, cut.later_.headerBytes.begin());
    cut.later_.headerSize = Ipv4::size;
    if (!appendCopied(packet.first(cut.headerSize_).subspan(Ipv4::size), cut.later_)) {
        return std::nullopt;
    }
    const std::size_t lastRoom = mtu - cut.later_.headerSize;
    cut.firstSize_ = wholeUnits(mtu - cut.headerSize_);
    cut.laterSize_ = wholeUnits(lastRoom);
    const std::size_t rest = cut.dataSize_ - cut.firstSize_;
    const std::size_t between =
        rest <= lastRoom ? 0 : (rest - lastRoom + cut.laterSize_ - 1) / cut.laterSize_;
    cut.count_ = 2 + between;
    assert(cut.firstSize_ > 0 && cut.firstSize_ < cut.dataSize_ && cut.laterSize_ > 0);
    return cut;
}

IpFragment IpFragments::at(std::size_t index) const noexcept {
    assert(index < count_);
    IpFragment fragment = later_;
    if (index == 0) {
        std::copy_n(packet_.begin(), headerSize_, fragment.headerBytes.begin());
        fragment.headerSize = headerSize_;
    }
    const bool isLast = index + 1 == count_;
    const std::size_t from = index == 0 ? 0 : firstSize_ + (index - 1) * laterSize_;
    const std::size_t size = isLast ? dataSize_ - from : index == 0 ? firstSize_ : laterSize_;
    const Wire::Bytes data = packet_.subspan(headerSize_);
    fragment.payload = data.subspan(std::min(from, data.size()));
    fragment.payload = fragment.payload.first(std::min(size, fragment.payload.size()));
    fragment.snapped = size - fragment.payload.size();

    const Wire::WritableBytes bytes(fragment.headerBytes.data(), fragment.headerSize);
    const Wire::Ipv4Writer header(bytes);
    header.headerSizeIs(bytes.size());
    header.totalLengthIs(bytes.size() + size);
    const auto offset = static_cast<std::uint16_t>(header.fragment() + from / unit);
    header.fragmentIs(isLast ? offset : offset | Ipv4::moreFragmentsFlag);
    header.checksumIs(0);
    Wire::completeChecksum(bytes, 0, Ipv4::checksumAt);
    return fragment;
}

} // namespace OvixAgent
