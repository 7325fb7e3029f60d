#include "Capture/CaptureReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <pcap/pcap.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "State/Frame.h"

namespace OvixAgent {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

/// Does not move the read position. False for a pipe, whose beginning cannot be read twice.
bool beginsLikeMicrosecondPcap(std::FILE* file) {
    static constexpr std::array<std::uint8_t, 4> bigEndian{0xa1, 0xb2, 0xc3, 0xd4};
    std::array<std::uint8_t, 4> magic{};
    if (pread(fileno(file), magic.data(), magic.size(), 0) != ssize_t{magic.size()}) {
        return false;
    }
    return magic == bigEndian || std::equal(magic.begin(), magic.end(), bigEndian.rbegin());
}

struct FileKind {
    bool isPipe;
    std::uint64_t bytes; ///< 0 when unknown
};

FileKind kindOf(std::FILE* file) {
    struct stat status {};
    const bool known = fstat(fileno(file), &status) == 0;
    return {known && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)),
            known && S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0};
}

/// In a damaged capture the fraction may be anything, even negative.
CaptureTime normalised(std::int64_t seconds, std::int64_t nanoseconds) {
    seconds += nanoseconds / nanosecondsPerSecond;
    nanoseconds %= nanosecondsPerSecond;
    if (nanoseconds < 0) {
        nanoseconds += nanosecondsPerSecond;
        --seconds;
    }
    return {seconds, static_cast<std::uint32_t>(nanoseconds)};
}

} // namespace

void CaptureReader::Closer::operator()(pcap* capture) const noexcept {
    pcap_close(capture);
}

CaptureReader::CaptureReader(std::uint32_t port, std::string path) : path_(std::move(path)) {
    std::FILE* const file = std::fopen(path_.c_str(), "rb");
    if (file == nullptr) {
        throw CaptureError(fmt::format("{}: cannot be opened: {}", path_, std::strerror(errno)));
    }
    const FileKind kind = kindOf(file);
    sizeBytes_ = kind.bytes;
    if (kind.isPipe) {
        // Unbuffered: poll on the descriptor does not see what a buffer holds.
        std::setvbuf(file, nullptr, _IONBF, 0);
        waitDescriptor_ = fileno(file);
    }
    hasMicroseconds_ = beginsLikeMicrosecondPcap(file);
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    capture_.reset(
        pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, error.data()));
    if (!capture_) {
        std::fclose(file);
        throw CaptureError(
            fmt::format("{}: is not a pcap or pcapng capture: {}", path_, error.data()));
    }
    refuseOtherLinkTypes();
    frame_.port = port;
}

void CaptureReader::refuseOtherLinkTypes() const {
    const int linkType = pcap_datalink(capture_.get());
    if (linkType == DLT_EN10MB) {
        return;
    }
    const char* const name = pcap_datalink_val_to_name(linkType);
    const char* const description = pcap_datalink_val_to_description(linkType);
    throw CaptureError(
        fmt::format("{}: link type {} ({}) is not Ethernet", path_,
                    name == nullptr ? fmt::format("{}", linkType) : std::string(name),
                    description == nullptr ? "unknown" : description));
}

const Frame* CaptureReader::next() {
    if (atEnd_) {
        return nullptr;
    }
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(capture_.get(), &header, &bytes);
    if (result != 1) {
        atEnd_ = true;
        if (result == PCAP_ERROR) {
            stopAtDamage();
        }
        return nullptr;
    }
    ++frames_;
    frame_.time = normalised(header->ts.tv_sec, header->ts.tv_usec);
    frame_.bytes = {bytes, header->caplen};
    frame_.originalLength = std::max(header->len, header->caplen);
    return &frame_;
}

void CaptureReader::stopAtDamage() {
    const std::string_view error = pcap_geterr(capture_.get());
    problem_ = error.starts_with("truncated")
                   ? fmt::format("{} is truncated after frame {}", path_, frames_)
                   : fmt::format("{} cannot be read beyond frame {}: {}", path_, frames_, error);
}

std::uint64_t CaptureReader::readBytes() const {
    const off_t position = ftello(pcap_file(capture_.get()));
    return position < 0 ? 0 : static_cast<std::uint64_t>(position);
}

} // namespace OvixAgent
