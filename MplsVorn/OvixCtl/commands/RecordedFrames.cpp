#include "commands/RecordedFrames.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fmt/format.h>
#include <string_view>
#include <system_error>

#include "Capture/Pcapng.h"
#include "Ovix/trace/NamedCounters.h"

namespace OvixCtl {

namespace {

namespace BlockType = OvixAgent::Pcapng::BlockType;
namespace OptionCode = OvixAgent::Pcapng::OptionCode;

template <typename Number>
void put(std::vector<std::uint8_t>& to, Number number) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&number);
    to.insert(to.end(), bytes, bytes + sizeof number);
}

/// Up to a multiple of four.
void putPadded(std::vector<std::uint8_t>& to, std::string_view bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
    to.resize((to.size() + 3) / 4 * 4);
}

void putOption(std::vector<std::uint8_t>& to, std::uint16_t code, std::string_view value) {
    put(to, code);
    put(to, static_cast<std::uint16_t>(value.size()));
    putPadded(to, value);
}

std::string viaText(const Json& via) {
    const std::string port = cellOf(via.at("port"));
    const std::string nexthop = cellOf(via.at("nexthop"));
    return port.empty() && nexthop.empty()
               ? std::string()
               : fmt::format("{}{}{}", port.empty() ? "" : " via " + port,
                             nexthop.empty() ? "" : " to ", nexthop);
}

std::string fateText(const Json& frame) {
    return fmt::format("{}: {}", cellOf(frame.at("fate")),
                       Ovix::readableEvent({}, cellOf(frame.at("reason"))).reason);
}

/// What the router has made itself came in nowhere.
std::string portText(const Json& frame) {
    return frame.value("own", false) ? "(own)" : cellOf(frame.at("port"));
}

std::string labelText(const Json& frame) {
    return frame.at("label").is_null() ? "" : fmt::format(" label {}", cellOf(frame.at("label")));
}

} // namespace

std::string recordedText(const Json& frame) {
    return fmt::format("{} {}{} {} bytes{} generation {} {}{}",
                       timeText(frame.at("time").get<std::uint64_t>()), portText(frame),
                       labelText(frame), cellOf(frame.at("length")), viaText(frame.at("via")),
                       cellOf(frame.at("generation")), fateText(frame),
                       frame.at("first") == true ? " (the first)" : "");
}

std::string recordedComment(const Json& frame) {
    return fmt::format("{} (port {}{}{}, generation {})", fateText(frame), portText(frame),
                       labelText(frame), viaText(frame.at("via")), cellOf(frame.at("generation")));
}

std::vector<std::uint8_t> bytesOfHex(const std::string& hex) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at + 2 <= hex.size(); at += 2) {
        std::uint8_t byte = 0;
        const char* const end = hex.data() + at + 2;
        if (std::from_chars(end - 2, end, byte, 16).ptr != end) {
            break;
        }
        bytes.push_back(byte);
    }
    return bytes;
}

RecordedCapture::RecordedCapture(const std::string& path)
    : path_(path == "-" ? "standard output" : path),
      file_(path == "-" ? stdout : std::fopen(path.c_str(), "wb"),
            path == "-" ? &std::fflush : &std::fclose) {
    if (file_ == nullptr) {
        fail();
    }
    constexpr std::int64_t unknownLength = -1;
    Bytes body;
    put(body, OvixAgent::Pcapng::byteOrder);
    put(body, std::uint16_t{1}); // version 1.0
    put(body, std::uint16_t{0});
    put(body, unknownLength);
    write(BlockType::section, body);
}

std::uint32_t RecordedCapture::interfaceOf(const std::string& port) {
    const auto known = std::find(ports_.begin(), ports_.end(), port);
    if (known != ports_.end()) {
        return static_cast<std::uint32_t>(known - ports_.begin());
    }
    constexpr std::uint16_t ethernet = 1;
    Bytes body;
    put(body, ethernet);
    put(body, std::uint16_t{0});
    put(body, std::uint32_t{0}); // no limit
    putOption(body, OptionCode::interfaceName, port);
    putOption(body, OptionCode::timeResolution, "\x09"); // nanoseconds
    putOption(body, OptionCode::end, {});
    write(BlockType::interface, body);
    ports_.push_back(port);
    return static_cast<std::uint32_t>(ports_.size() - 1);
}

void RecordedCapture::add(const Json& frame) {
    const std::uint32_t number = interfaceOf(cellOf(frame.at("port")));
    const Bytes bytes = bytesOfHex(cellOf(frame.at("bytes")));
    const auto time = frame.at("time").get<std::uint64_t>();
    Bytes body;
    put(body, number);
    put(body, static_cast<std::uint32_t>(time >> 32U));
    put(body, static_cast<std::uint32_t>(time));
    put(body, static_cast<std::uint32_t>(bytes.size()));
    put(body, frame.at("length").get<std::uint32_t>());
    putPadded(body, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    putOption(body, OptionCode::comment, recordedComment(frame));
    putOption(body, OptionCode::end, {});
    write(BlockType::packet, body);
}

void RecordedCapture::flush() {
    if (std::fflush(file_.get()) != 0) {
        fail();
    }
}

void RecordedCapture::write(std::uint32_t type, const Bytes& body) {
    Bytes block;
    const auto length = static_cast<std::uint32_t>(body.size() + 3 * sizeof type);
    put(block, type);
    put(block, length);
    block.insert(block.end(), body.begin(), body.end());
    put(block, length);
    if (std::fwrite(block.data(), 1, block.size(), file_.get()) != block.size()) {
        fail();
    }
}

void RecordedCapture::fail() const {
    throw std::system_error(errno, std::generic_category(), path_);
}

} // namespace OvixCtl
