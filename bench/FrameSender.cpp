#include "FrameSender.h"

#include <algorithm>
#include <cerrno>
#include <linux/if_packet.h>
#include <net/if.h>
#include <system_error>
#include <thread>

#include "TableSamples.h"

namespace Bench {

namespace Raw = TestSupport::Raw;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t frameBytes = 64;
constexpr std::size_t perCall = 64;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// What fills the frame up to its size, behind so many bytes of headers.
Raw::Bytes datagram(std::size_t before) {
    return Raw::udp(1024, 9, Raw::filled(frameBytes - before - 8, 0));
}

} // namespace

std::vector<Raw::Bytes> labelledFrames(std::uint32_t count) {
    std::vector<Raw::Bytes> frames;
    for (std::uint32_t i = 0; i < count; ++i) {
        frames.push_back(Raw::join({Raw::eth(Raw::ethMpls), Raw::stack({{firstLabel + i}}),
                                    Raw::ipv4({}, datagram(14 + 4 + 20))}));
    }
    return frames;
}

std::vector<Raw::Bytes> ipv4Frames(std::uint32_t count) {
    std::vector<Raw::Bytes> frames;
    for (std::uint32_t i = 0; i < count; ++i) {
        Raw::Ipv4 header;
        header.destination = 0x0a090000 + i;
        frames.push_back(Raw::join({Raw::eth(Raw::ethIpv4), Raw::ipv4(header, datagram(14 + 20))}));
    }
    return frames;
}

FrameSender::FrameSender(const std::string& link, std::vector<Raw::Bytes> frames)
    : frames_(std::move(frames)), extents_(frames_.size()), messages_(frames_.size()),
      socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
    for (std::size_t i = 0; i < frames_.size(); ++i) {
        extents_[i] = {frames_[i].data(), frames_[i].size()};
        messages_[i].msg_hdr.msg_iov = &extents_[i];
        messages_[i].msg_hdr.msg_iovlen = 1;
    }
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex(link.c_str()));
    if (!socket_.isOpen() ||
        bind(socket_.value(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("opening a socket to send on");
    }
}

void FrameSender::send(std::size_t count) {
    while (count > 0) {
        const std::size_t some = std::min({count, perCall, messages_.size() - next_});
        const int taken =
            sendmmsg(socket_.value(), &messages_[next_], static_cast<unsigned int>(some), 0);
        if (taken < 0) {
            if (errno == EINTR || errno == ENOBUFS) {
                continue;
            }
            fail("sending");
        }
        const auto done = static_cast<std::size_t>(taken);
        next_ = (next_ + done) % messages_.size();
        sent_ += done;
        count -= done;
    }
}

void FrameSender::sendFor(std::chrono::milliseconds time) {
    const auto end = Clock::now() + time;
    while (Clock::now() < end) {
        send(perCall);
    }
}

void FrameSender::sendFor(std::chrono::milliseconds time, std::uint64_t framesPerSecond,
                          const std::function<void()>& afterwards) {
    const auto start = Clock::now();
    const std::uint64_t before = sent_;
    for (auto now = start; now < start + time; now = Clock::now()) {
        std::this_thread::sleep_until(now + std::chrono::microseconds(200));
        const double passed = std::chrono::duration<double>(Clock::now() - start).count();
        const auto due = static_cast<std::uint64_t>(passed * static_cast<double>(framesPerSecond));
        send(due - std::min(due, sent_ - before));
        if (afterwards) {
            afterwards();
        }
    }
}

} // namespace Bench
