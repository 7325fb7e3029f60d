#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Lumo/NetInt.h"

namespace OvixAgent {

/// A TLV or sub-TLV of an MPLS echo message (RFC 8029 section 3): type, length of the value, and
/// the value, filled up to whole words.
struct LspEchoTlv {
    static constexpr std::size_t headerSize = 4;

    // Types of TLVs.
    static constexpr std::uint16_t targetFecStack = 1;
    static constexpr std::uint16_t pad = 3;
    static constexpr std::uint16_t erroredTlvs = 9;
    static constexpr std::uint16_t replyTosByte = 10;
    static constexpr std::uint16_t downstreamDetailedMapping = 20;
    /// Types from here on may be ignored where they are not known.
    static constexpr std::uint16_t firstOptional = 0x8000;

    std::uint16_t type = 0;
    std::span<const std::uint8_t> value;
    std::span<const std::uint8_t> whole; ///< with its header and padding

    /// Takes the first TLV from `bytes`; empty when they do not hold a whole one.
    static std::optional<LspEchoTlv> take(std::span<const std::uint8_t>& bytes) noexcept {
        if (bytes.size() < headerSize) {
            return std::nullopt;
        }
        const std::size_t length = Lumo::NetU16::load(bytes.data() + 2).value();
        const std::size_t size = headerSize + (length + 3) / 4 * 4;
        if (size > bytes.size()) {
            return std::nullopt;
        }
        const LspEchoTlv tlv{Lumo::NetU16::load(bytes.data()).value(),
                             bytes.subspan(headerSize, length), bytes.first(size)};
        bytes = bytes.subspan(size);
        return tlv;
    }

    /// Adds a TLV with a value of whole words.
    static void add(std::vector<std::uint8_t>& bytes, std::uint16_t type,
                    std::span<const std::uint8_t> value) {
        const std::size_t at = bytes.size();
        bytes.resize(at + headerSize);
        Lumo::NetU16(type).store(bytes.data() + at);
        Lumo::NetU16(static_cast<std::uint16_t>(value.size())).store(bytes.data() + at + 2);
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
};

} // namespace OvixAgent
