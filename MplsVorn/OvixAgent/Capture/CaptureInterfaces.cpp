#include "Capture/CaptureInterfaces.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "Capture/Pcapng.h"

namespace OvixAgent {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t wordBytes = sizeof(std::uint32_t);
/// No block that CaptureReader takes is longer.
constexpr std::uint32_t longestBlock = 16U << 20U;

} // namespace

// What is no file, such as a pipe, can be read only once, which is for its frames.
CaptureInterfaces::CaptureInterfaces(const std::string& path) {
    std::error_code none;
    if (std::filesystem::is_regular_file(path, none)) {
        file_.open(path, std::ios::binary);
    }
}

template <typename Number>
Number CaptureInterfaces::numberAt(const Bytes& bytes, std::size_t offset) const noexcept {
    Number number = 0;
    if (offset + sizeof number <= bytes.size()) {
        auto* const to = reinterpret_cast<std::uint8_t*>(&number);
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), sizeof number, to);
        if (isSwapped_) {
            std::reverse(to, to + sizeof number);
        }
    }
    return number;
}

/// `start` is type and length of the section's block. False when the byte order is none.
bool CaptureInterfaces::beginSection(Bytes& start) {
    start.resize(3 * wordBytes);
    file_.read(reinterpret_cast<char*>(start.data() + 2 * wordBytes), wordBytes);
    file_.seekg(-static_cast<std::streamoff>(wordBytes), std::ios::cur);
    names_.clear();
    isSwapped_ = false;
    isSwapped_ = numberAt<std::uint32_t>(start, 2 * wordBytes) != Pcapng::byteOrder;
    return numberAt<std::uint32_t>(start, 2 * wordBytes) == Pcapng::byteOrder;
}

/// Without its lengths.
std::optional<CaptureInterfaces::Block> CaptureInterfaces::nextBlock() {
    Bytes start(2 * wordBytes);
    if (!file_.read(reinterpret_cast<char*>(start.data()), 2 * wordBytes)) {
        return std::nullopt;
    }
    const auto type = numberAt<std::uint32_t>(start, 0);
    if (type == Pcapng::BlockType::section && !beginSection(start)) {
        return std::nullopt;
    }
    const auto length = numberAt<std::uint32_t>(start, wordBytes);
    if (length < 3 * wordBytes || length > longestBlock || length % wordBytes != 0) {
        return std::nullopt;
    }
    Block block{type, Bytes(length - 3 * wordBytes)};
    file_.read(reinterpret_cast<char*>(block.body.data()),
               static_cast<std::streamsize>(block.body.size()));
    file_.seekg(wordBytes, std::ios::cur);
    return file_ ? std::optional(std::move(block)) : std::nullopt;
}

/// `body` is that of an interface's block.
std::string CaptureInterfaces::nameIn(const Bytes& body) const {
    constexpr std::size_t head = 2 * sizeof(std::uint16_t);
    std::size_t at = 2 * wordBytes; // behind link type and snap length
    while (at + head <= body.size()) {
        const auto code = numberAt<std::uint16_t>(body, at);
        const std::size_t size = numberAt<std::uint16_t>(body, at + sizeof code);
        at += head;
        if (code == Pcapng::OptionCode::end || size > body.size() - at) {
            break;
        }
        if (code == Pcapng::OptionCode::interfaceName) {
            const std::string name(body.begin() + static_cast<std::ptrdiff_t>(at),
                                   body.begin() + static_cast<std::ptrdiff_t>(at + size));
            return name.substr(0, name.find('\0'));
        }
        at += (size + wordBytes - 1) / wordBytes * wordBytes;
    }
    return {};
}

std::string CaptureInterfaces::nameOf(std::uint32_t interface) const {
    return interface < names_.size() ? names_[interface] : std::string();
}

std::optional<std::string> CaptureInterfaces::next() {
    namespace Type = Pcapng::BlockType;
    while (const std::optional<Block> block = nextBlock()) {
        switch (block->type) {
        case Type::interface:
            names_.push_back(nameIn(block->body));
            break;
        case Type::packet:
            return nameOf(numberAt<std::uint32_t>(block->body, 0));
        case Type::oldPacket:
            return nameOf(numberAt<std::uint16_t>(block->body, 0));
        case Type::simplePacket:
            return nameOf(0);
        default:
            break;
        }
    }
    return std::nullopt;
}

std::string captureInterfaceOf(const std::string& path, std::uint64_t number) {
    CaptureInterfaces interfaces(path);
    std::optional<std::string> name;
    for (std::uint64_t i = 0; i < number && (i == 0 || name); ++i) {
        name = interfaces.next();
    }
    return name.value_or("");
}

} // namespace OvixAgent
