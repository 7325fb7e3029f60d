#include "Explain/FrameWords.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>

#include "Capture/CaptureReader.h"
#include "Config/ConfigText.h"
#include "Explain/FrameBuilding.h"
#include "Lumo/Pkt.h"

namespace OvixAgent {

std::string hexText(std::span<const std::uint8_t> bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

namespace {

Tessel::Refused refusedAt(std::string_view what, std::size_t place, std::string_view why) {
    return {fmt::format("FRAME, {} {}: {}", what, place + 1, why)};
}

bool isHexText(std::string_view text) noexcept {
    return text.find_first_not_of("0123456789abcdefABCDEF :.-") == std::string_view::npos;
}

int hexDigit(char c) noexcept {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

Tessel::Result<GivenFrame> readHex(std::string_view text, PortIndex port) {
    GivenFrame frame;
    int upper = -1;
    std::size_t digitAt = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int digit = hexDigit(text[i]);
        if (digit < 0 && std::string_view(" :.-").find(text[i]) == std::string_view::npos) {
            return refusedAt(
                "character", i,
                fmt::format("{} is no hexadecimal digit", inQuotes(text.substr(i, 1))));
        }
        if (digit < 0) {
            continue;
        }
        digitAt = i;
        if (upper >= 0) {
            frame.bytes.push_back(static_cast<std::uint8_t>(upper << 4 | digit));
        }
        upper = upper >= 0 ? -1 : digit;
    }
    if (upper >= 0) {
        return refusedAt("character", digitAt, "half a byte is left");
    }
    if (frame.bytes.size() > Lumo::Pkt::maxBytes) {
        return refusedAt("character", 0,
                         fmt::format("more than {} bytes", std::size_t{Lumo::Pkt::maxBytes}));
    }
    if (frame.bytes.empty()) {
        return refusedAt("character", 0, "no byte is given");
    }
    frame.originalLength = static_cast<std::uint32_t>(frame.bytes.size());
    frame.port = port;
    return frame;
}

/// Words with blanks in between name a file only if there is one.
bool isFileName(std::string_view text) {
    std::error_code none;
    return text.find(' ') == std::string_view::npos || text.ends_with(".pcap") ||
           text.ends_with(".pcapng") || std::filesystem::exists(text, none);
}

/// The place of the colon in CAPTURE:NUMBER; npos for anything else.
std::size_t numberColon(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    const bool isNumber = colon != std::string_view::npos && colon > 0 && colon + 1 < text.size() &&
                          text.find_first_not_of("0123456789", colon + 1) == std::string_view::npos;
    return isNumber && isFileName(text.substr(0, colon)) ? colon : std::string_view::npos;
}

/// Whether somebody who typed that has probably forgotten the number behind a capture.
bool isCaptureAlone(std::string_view text) noexcept {
    return text.find(' ') == std::string_view::npos &&
           (text.ends_with(".pcap") || text.ends_with(".pcapng"));
}

/// The place of the colon behind the name of a capture; the size of the text when there is none.
std::size_t captureEnd(std::string_view text) noexcept {
    for (const std::string_view ending : {".pcap:", ".pcapng:"}) {
        if (const std::size_t at = text.find(ending); at != std::string_view::npos) {
            return at + ending.size() - 1;
        }
    }
    return text.size();
}

bool isHex(std::string_view text) noexcept {
    return text.starts_with("0x") || isHexText(text);
}

Tessel::Result<GivenFrame> readCapture(const FrameOfCapture& from, PortIndex port) {
    if (from.number == 0) {
        return Tessel::Refused{"FRAME: the frames of a capture have numbers from 1"};
    }
    try {
        CaptureReader capture(port, from.path);
        const Frame* frame = nullptr;
        std::uint64_t read = 0;
        while (read < from.number && (frame = capture.next()) != nullptr) {
            ++read;
        }
        if (frame == nullptr) {
            return Tessel::Refused{fmt::format(
                "FRAME: {} has {} frames, and no number {}{}", from.path, read, from.number,
                capture.problem().empty() ? "" : "; " + capture.problem())};
        }
        return GivenFrame{{frame->bytes.begin(), frame->bytes.end()},
                          frame->originalLength,
                          port,
                          frame->time,
                          {}};
    } catch (const CaptureError& error) {
        return Tessel::Refused{fmt::format("FRAME: {}", error.what())};
    }
}

} // namespace

std::optional<FrameOfCapture> frameOfCapture(std::string_view text) {
    const std::size_t colon = numberColon(text);
    if (colon == std::string_view::npos || isHex(text) || beginsWithHeader(text)) {
        return std::nullopt;
    }
    FrameOfCapture from{std::string(text.substr(0, colon))};
    std::from_chars(text.data() + colon + 1, text.data() + text.size(), from.number);
    return from;
}

Tessel::Result<GivenFrame> readFrame(std::string_view text, PortIndex port,
                                     const FrameDefaults& defaults) {
    if (text.find_first_not_of(' ') == std::string_view::npos) {
        return refusedAt("character", 0, "is empty");
    }
    if (isHex(text)) {
        return readHex(text.substr(text.starts_with("0x") ? 2 : 0), port);
    }
    if (const auto from = frameOfCapture(text)) {
        return readCapture(*from, port);
    }
    if (const std::size_t end = captureEnd(text); end < text.size()) {
        return Tessel::Refused{fmt::format("FRAME: {} is no number of a frame of {}",
                                           inQuotes(text.substr(end + 1)), text.substr(0, end))};
    }
    if (isCaptureAlone(text)) {
        return Tessel::Refused{
            fmt::format("FRAME: which frame of the capture? {}:1 is its first", text)};
    }
    return buildFrame(text, port, defaults);
}

} // namespace OvixAgent
