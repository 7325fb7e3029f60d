#pragma once

#include <string>
#include <vector>

#include "decoding/FpmDecoder.h"

namespace TestSupport::Fpm {

/// A change as it reads in a log; "refused at OFFSET: REASON" for what was skipped.
inline std::string line(const OvixFpm::FpmDecoder::Event& event) {
    if (event) {
        return text(event.value());
    }
    const std::string& what = event.refused().what; // "at byte OFFSET: REASON: BYTES"
    const std::size_t start = std::string("at byte ").size();
    return "refused at " + what.substr(start, what.rfind(':') - start);
}

/// All that comes out of the bytes, handed to the decoder in pieces of that size.
inline std::vector<std::string> linesOf(OvixFpm::FpmDecoder& decoder, OvixFpm::Bytes bytes,
                                        std::size_t piece = 65536) {
    std::vector<std::string> lines;
    while (!bytes.empty()) {
        const auto now = bytes.first(std::min(piece, bytes.size()));
        bytes = bytes.subspan(now.size());
        decoder.take(now);
        while (const auto event = decoder.next()) {
            lines.push_back(line(*event));
        }
    }
    return lines;
}

inline std::vector<std::string> linesOf(OvixFpm::Bytes bytes, std::size_t piece = 65536) {
    OvixFpm::FpmDecoder decoder;
    return linesOf(decoder, bytes, piece);
}

using Lines = std::vector<std::string>;

} // namespace TestSupport::Fpm
