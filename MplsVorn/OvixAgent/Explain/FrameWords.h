#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Explain/Situation.h"
#include "Lumo/IpGenAddr.h"
#include "Tessel/Result.h"

namespace OvixAgent {

/// What a frame is made with where its words leave it open.
struct FrameDefaults {
    Lumo::EthAddr destination{}; ///< of the port that it comes in at
};

/// The frame that a text describes, to be explained as one that comes in at `port`:
///
///     hexadecimal digits, with blanks, colons, dots or hyphens in between
///     CAPTURE:NUMBER, a frame of a pcap or pcapng file, counted from 1
///     words, a header after the other with commas in between, the outermost first:
///       mac DESTINATION [from SOURCE]
///       vlan ID [priority N]
///       label L[/ttl N][/tc N]
///       control-word [0xHHHHHHHH]
///       ethernet DESTINATION [from SOURCE]    (the frame in a pseudowire)
///       ip SOURCE > DESTINATION [udp|tcp [SPORT >] DPORT | lsp-ping PREFIX/LENGTH | proto N]
///          [ttl N] [tos N] [df] [size N]      (bytes with the IP header)
///
/// Refused naming the place in it: a character or a word, from 1.
Tessel::Result<GivenFrame> readFrame(std::string_view text, PortIndex port,
                                     const FrameDefaults& defaults);

/// Where the text is CAPTURE:NUMBER.
struct FrameOfCapture {
    std::string path;
    std::uint64_t number = 0; ///< 0 when it is none
};
std::optional<FrameOfCapture> frameOfCapture(std::string_view text);

/// As hexadecimal digits.
std::string hexText(std::span<const std::uint8_t> bytes);

} // namespace OvixAgent
