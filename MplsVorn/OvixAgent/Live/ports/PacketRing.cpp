#include "Live/ports/PacketRing.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <linux/if_packet.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <utility>

#include "Posix/SystemError.h"
#include "Tessel/Prefetch.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

// A slot holds a frame of 1500 bytes behind an Ethernet header, tags and labels, with the kernel's
// header and the headroom. Its size is an odd number of cache lines, so that the headers of slots
// spread over all of the processor's cache sets. The slots last for 27 ms at a million frames a
// second, those of several rings together when flows are spread evenly.
constexpr std::uint32_t slotBytes = 29 * 64;
constexpr std::uint32_t blockBytes = 1U << 16U;
constexpr std::uint32_t slotsPerBlock = blockBytes / slotBytes;
constexpr std::uint32_t mostBlocks = 768;
static_assert(slotBytes % TPACKET_ALIGNMENT == 0);

// The kernel's account of a merged frame is more than its 64 KiB: the queue has room for some 500.
constexpr int queueBytes = 1 << 25;
constexpr std::size_t longestInQueue = std::size_t{1} << 17U;
constexpr std::uint32_t framesAhead = 8;
constexpr std::uint32_t reserved = frameHeadroom + Wire::Tag::size;

template <typename T>
void setOption(int socket, int name, const T& value, const char* step) {
    if (setsockopt(socket, SOL_PACKET, name, &value, sizeof value) != 0) {
        Posix::fail(step);
    }
}

std::atomic_ref<std::uint32_t> statusOf(std::uint8_t* slot) noexcept {
    return std::atomic_ref<std::uint32_t>(reinterpret_cast<tpacket2_hdr*>(slot)->tp_status);
}

/// Loads the beginning of the frame and what is in front of it.
void prefetch(const std::uint8_t* slot) noexcept {
    constexpr std::size_t cacheLine = 64;
    const std::uint8_t* const frame = slot + reinterpret_cast<const tpacket2_hdr*>(slot)->tp_mac;
    Tessel::prefetch(frame);
    Tessel::prefetch(frame + cacheLine);
}

std::optional<Wire::Tag> removedTag(const tpacket2_hdr& header) noexcept {
    if ((header.tp_status & TP_STATUS_VLAN_VALID) == 0) {
        return std::nullopt;
    }
    const bool isTypeKnown = (header.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0;
    const std::uint16_t type = isTypeKnown ? header.tp_vlan_tpid : Wire::EtherType::vlan;
    return Wire::Tag{Lumo::NetU16(type), Lumo::NetU16(header.tp_vlan_tci)};
}

/// Room for the frames in the queue of the socket.
void growQueue(int socket) noexcept {
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &queueBytes, sizeof queueBytes) != 0) {
        // Without the privilege the kernel limits the size.
        setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &queueBytes, sizeof queueBytes);
    }
}

} // namespace

// The socket receives nothing until it is bound, so that no frame passes before the filter. It is
// bound to all protocols, since a socket bound to MPLS does not get the tags. One of several
// accepts nothing before it has joined them, since it would receive what the others do.
PacketRing::PacketRing(unsigned int interfaceIndex, PacketIntake intake, RingShare share)
    : share_(std::move(share)), slots_(mostBlocks / share_.rings * slotsPerBlock),
      socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      longFrame_(frameHeadroom + Wire::Tag::size + longestInQueue) {
    const int descriptor = socket_.value();
    if (descriptor < 0) {
        Posix::fail("opening a packet socket");
    }
    setOption(descriptor, PACKET_VERSION, int{TPACKET_V2}, "choosing TPACKET_V2");
    setOption(descriptor, PACKET_AUXDATA, 1, "requesting tags");
    setOption(descriptor, PACKET_IGNORE_OUTGOING, 1, "ignoring what is sent");
    setOption(descriptor, PACKET_VNET_HDR, 1, "requesting offload information");
    setOption(descriptor, PACKET_RESERVE, reserved, "reserving headroom");
    setOption(descriptor, PACKET_COPY_THRESH, 1, "requesting frames longer than a slot");
    growQueue(descriptor);
    if (share_.group) {
        acceptNothing(descriptor);
    } else {
        intakeIs(intake);
    }
    map();
    bool isMember = false;
    try {
        bindToInterface(descriptor, interfaceIndex);
        if (share_.group) {
            share_.group->join(descriptor);
            isMember = true;
            intakeIs(intake);
        }
    } catch (...) {
        munmap(memory_, bytes());
        if (isMember) {
            share_.group->leave(socket_);
        }
        throw;
    }
}

PacketRing::~PacketRing() {
    munmap(memory_, bytes());
    if (share_.group) {
        share_.group->leave(socket_);
    }
}

void PacketRing::intakeIs(PacketIntake intake) {
    acceptFrames(socket_.value(), intake, share_.group != nullptr);
}

void PacketRing::map() {
    const tpacket_req request{blockBytes, slots_ / slotsPerBlock, slotBytes, slots_};
    setOption(socket_.value(), PACKET_RX_RING, request, "creating the receive ring");
    void* memory = mmap(nullptr, bytes(), PROT_READ | PROT_WRITE, MAP_SHARED, socket_.value(), 0);
    if (memory == MAP_FAILED) {
        Posix::fail("mapping the receive ring");
    }
    memory_ = static_cast<std::uint8_t*>(memory);
}

std::uint8_t* PacketRing::slot(std::uint32_t index) const noexcept {
    return memory_ + std::size_t{index / slotsPerBlock} * blockBytes +
           std::size_t{index % slotsPerBlock} * slotBytes;
}

std::uint32_t PacketRing::behind(std::uint32_t count) const noexcept {
    const std::uint32_t index = next_ + count;
    return index < slots_ ? index : index - slots_;
}

// The processor fetches the headers of several slots at a time, which the kernel has written on
// another one. Slots that are not filled yet stay there.
bool PacketRing::look() noexcept {
    assert(ready_ == 0);
    const auto most =
        static_cast<std::uint32_t>(std::min<std::size_t>(burstFrames, slots_ - held_));
    while (ready_ < most &&
           (statusOf(slot(behind(ready_))).load(std::memory_order_relaxed) & TP_STATUS_USER) != 0) {
        ++ready_;
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    for (std::uint32_t i = 0; i < std::min(ready_, framesAhead); ++i) {
        prefetch(slot(behind(i)));
    }
    return ready_ > 0;
}

bool PacketRing::next(RingFrame& frame) noexcept {
    while (held_ < slots_) {
        if (ready_ == 0 && !look()) {
            return false;
        }
        if (ready_ > framesAhead) {
            prefetch(slot(behind(framesAhead)));
        }
        std::uint8_t* const at = slot(next_);
        next_ = behind(1);
        --ready_;
        ++held_;
        if (read(at, frame)) {
            return true;
        }
        ++lost_;
    }
    return false;
}

/// False when only the beginning of the frame has been kept.
bool PacketRing::read(std::uint8_t* slot, RingFrame& frame) noexcept {
    const auto& header = *reinterpret_cast<const tpacket2_hdr*>(slot);
    frame.bytes = {slot + header.tp_mac, header.tp_snaplen};
    frame.headroom = header.tp_mac - static_cast<std::uint32_t>(sizeof header);
    frame.length = header.tp_len;
    frame.time = {header.tp_sec, header.tp_nsec};
    frame.removedTag = removedTag(header);
    std::memcpy(&frame.offloaded, frame.bytes.data() - sizeof frame.offloaded,
                sizeof frame.offloaded);
    frame.isInSlot = (header.tp_status & TP_STATUS_COPY) == 0;
    if (frame.isInSlot) {
        return header.tp_snaplen == header.tp_len;
    }
    frame.bytes = fetchLong();
    frame.headroom = reserved;
    return !frame.bytes.empty();
}

/// The first frame of the socket's queue. What the kernel writes in front of it is in the slot,
/// too.
std::span<std::uint8_t> PacketRing::fetchLong() noexcept {
    OffloadedWork ignored;
    std::uint8_t* const to = longFrame_.data() + reserved;
    std::array<iovec, 2> parts{{{&ignored, sizeof ignored}, {to, longestInQueue}}};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    const ssize_t size = recvmsg(socket_.value(), &message, MSG_DONTWAIT);
    constexpr auto before = static_cast<ssize_t>(sizeof ignored);
    return {to, static_cast<std::size_t>(std::max(size, before) - before)};
}

void PacketRing::release() noexcept {
    for (; held_ > 0; --held_) {
        const std::uint32_t oldest = next_ >= held_ ? next_ - held_ : next_ + slots_ - held_;
        statusOf(slot(oldest)).store(TP_STATUS_KERNEL, std::memory_order_release);
    }
}

std::size_t PacketRing::bytes() const noexcept {
    return std::size_t{slots_ / slotsPerBlock} * blockBytes;
}

std::uint64_t PacketRing::takeDrops() noexcept {
    tpacket_stats statistics{};
    socklen_t size = sizeof statistics;
    const int refused =
        getsockopt(socket_.value(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size);
    return std::exchange(lost_, 0) + (refused == 0 ? statistics.tp_drops : 0);
}

int PacketRing::takeError() noexcept {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket_.value(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

} // namespace OvixAgent
