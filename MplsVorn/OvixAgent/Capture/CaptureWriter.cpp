#include "Capture/CaptureWriter.h"

#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <pcap/pcap.h>
#include <utility>

#include "Capture/CaptureReader.h"
#include "State/Frame.h"

namespace OvixAgent {

namespace {

constexpr std::uint32_t nanosecondsPerMicrosecond = 1000;
constexpr std::size_t bufferSize = 65536;

struct PcapCloser {
    void operator()(pcap_t* capture) const noexcept { pcap_close(capture); }
};

} // namespace

void CaptureWriter::Closer::operator()(pcap_dumper* dumper) const noexcept {
    pcap_dump_close(dumper);
}

CaptureWriter::CaptureWriter(std::string path, TimePrecision precision)
    : path_(std::move(path)), precision_(precision) {
    const std::unique_ptr<pcap_t, PcapCloser> format(pcap_open_dead_with_tstamp_precision(
        DLT_EN10MB, longestCapturedFrame,
        precision == TimePrecision::nanoseconds ? PCAP_TSTAMP_PRECISION_NANO
                                                : PCAP_TSTAMP_PRECISION_MICRO));
    std::FILE* const file = format ? std::fopen(path_.c_str(), "wb") : nullptr;
    if (file == nullptr) {
        fail("cannot be created", errno);
    }
    std::setvbuf(file, nullptr, _IOFBF, bufferSize);
    dumper_.reset(pcap_dump_fopen(format.get(), file));
    if (!dumper_) {
        const int error = errno;
        std::fclose(file);
        fail("cannot be written", error);
    }
}

void CaptureWriter::transmit(const Frame& frame) {
    assert(dumper_);
    assert(frame.originalLength >= frame.bytes.size());
    pcap_pkthdr header{};
    header.ts.tv_sec = frame.time.seconds;
    header.ts.tv_usec = precision_ == TimePrecision::nanoseconds
                            ? frame.time.nanoseconds
                            : frame.time.nanoseconds / nanosecondsPerMicrosecond;
    header.caplen = static_cast<bpf_u_int32>(frame.bytes.size());
    header.len = frame.originalLength;
    pcap_dump(reinterpret_cast<u_char*>(dumper_.get()), &header, frame.bytes.data());
    if (std::ferror(pcap_dump_file(dumper_.get())) != 0) {
        fail("cannot be written", errno);
    }
    ++frames_;
}

void CaptureWriter::close() {
    if (!dumper_) {
        return;
    }
    if (pcap_dump_flush(dumper_.get()) != 0) {
        fail("cannot be written", errno);
    }
    dumper_.reset();
}

void CaptureWriter::fail(const char* what, int error) const {
    throw CaptureError(fmt::format("{}: {}: {}", path_, what, std::strerror(error)));
}

} // namespace OvixAgent
