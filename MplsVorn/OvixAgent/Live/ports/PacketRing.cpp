#include "Live/ports/PacketRing.h"

#include <arpa/inet.h>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <system_error>
#include <vector>

#include "Posix/SystemError.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

// A block has room for the largest merged frame, 64 KiB. The kernel releases it a millisecond after
// its first frame even if it is nearly empty, so with sparse traffic 256 blocks last for 256 ms, a
// delay that is possible on a busy host. At 10 Gbit/s they last for 26 ms.
constexpr std::uint32_t blockBytes = 1U << 17U;
constexpr std::uint32_t blocks = 256;
constexpr std::size_t ringBytes = std::size_t{blockBytes} * blocks;
constexpr unsigned int longestWaitMilliseconds = 1;

constexpr std::uint32_t etherTypeAt = Wire::Ethernet::etherTypeAt;
constexpr std::uint32_t packetType = static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE);
constexpr std::uint32_t wholeFrame = 0xffffffff;

constexpr sock_filter loadHalfWord(std::uint32_t at) {
    return {BPF_LD | BPF_H | BPF_ABS, 0, 0, at};
}

constexpr sock_filter loadByte(std::uint32_t at) {
    return {BPF_LD | BPF_B | BPF_ABS, 0, 0, at};
}

constexpr sock_filter accept(std::uint32_t bytes) {
    return {BPF_RET | BPF_K, 0, 0, bytes};
}

constexpr sock_filter ifEqualSkip(std::uint32_t value, std::uint8_t instructions) {
    return {BPF_JMP | BPF_JEQ | BPF_K, instructions, 0, value};
}

constexpr sock_filter unlessEqualSkip(std::uint32_t value, std::uint8_t instructions) {
    return {BPF_JMP | BPF_JEQ | BPF_K, 0, instructions, value};
}

void append(std::vector<sock_filter>& program, std::initializer_list<sock_filter> more) {
    program.insert(program.end(), more);
}

/// A classic BPF program. It sees the Ethernet header without the outermost tag, where the kernel
/// has removed that: of 802.1Q and 802.1ad.
std::vector<sock_filter> packetFilter(PacketIntake intake) {
    namespace EtherType = Wire::EtherType;
    if (intake == PacketIntake::everything) {
        return {accept(wholeFrame)};
    }
    std::vector<sock_filter> program{loadByte(packetType), unlessEqualSkip(PACKET_OTHERHOST, 1),
                                     accept(0), loadHalfWord(etherTypeAt)};
    for (const std::uint16_t type : {EtherType::mpls, EtherType::mplsUpstream, EtherType::vlan,
                                     EtherType::serviceVlan, EtherType::stackedVlan}) {
        append(program, {unlessEqualSkip(type, 1), accept(wholeFrame)});
    }
    if (intake == PacketIntake::labelledAndIp) {
        append(program,
               {ifEqualSkip(EtherType::ipv4, 2), ifEqualSkip(EtherType::ipv6, 1), accept(0),
                loadByte(packetType), unlessEqualSkip(PACKET_HOST, 1), accept(wholeFrame)});
    }
    program.push_back(accept(0));
    return program;
}

template <typename T>
void setOption(int socket, int name, const T& value, const char* step) {
    if (setsockopt(socket, SOL_PACKET, name, &value, sizeof value) != 0) {
        Posix::fail(step);
    }
}

void filter(int socket, PacketIntake intake) {
    std::vector<sock_filter> program = packetFilter(intake);
    const sock_fprog attached{static_cast<unsigned short>(program.size()), program.data()};
    if (setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached) != 0) {
        Posix::fail("attaching the frame filter");
    }
}

void bindTo(int socket, unsigned int interfaceIndex) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(interfaceIndex);
    if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        Posix::fail("binding the packet socket");
    }
}

/// Frames of an attachment circuit are addressed to any station. The kernel ends this with the
/// socket.
void receiveAllStations(int socket, unsigned int interfaceIndex) {
    packet_mreq request{};
    request.mr_ifindex = static_cast<int>(interfaceIndex);
    request.mr_type = PACKET_MR_PROMISC;
    setOption(socket, PACKET_ADD_MEMBERSHIP, request, "receiving the frames of all stations");
}

std::atomic_ref<std::uint32_t> statusOf(tpacket_block_desc& block) noexcept {
    return std::atomic_ref<std::uint32_t>(block.hdr.bh1.block_status);
}

} // namespace

// The socket receives nothing until it is bound, so that no frame passes before the filter. It is
// bound to all protocols, since a socket bound to MPLS does not get the tags.
PacketRing::PacketRing(unsigned int interfaceIndex, PacketIntake intake)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const int descriptor = socket_.value();
    if (descriptor < 0) {
        Posix::fail("opening a packet socket");
    }
    setOption(descriptor, PACKET_VERSION, int{TPACKET_V3}, "choosing TPACKET_V3");
    setOption(descriptor, PACKET_AUXDATA, 1, "requesting tags");
    setOption(descriptor, PACKET_IGNORE_OUTGOING, 1, "ignoring what is sent");
    setOption(descriptor, PACKET_VNET_HDR, 1, "requesting offload information");
    filter(descriptor, intake);
    map();
    try {
        bindTo(descriptor, interfaceIndex);
        if (intake == PacketIntake::everything) {
            receiveAllStations(descriptor, interfaceIndex);
        }
    } catch (...) {
        munmap(memory_, ringBytes);
        throw;
    }
}

PacketRing::~PacketRing() {
    munmap(memory_, ringBytes);
}

void PacketRing::map() {
    tpacket_req3 request{};
    request.tp_block_size = blockBytes;
    request.tp_block_nr = blocks;
    request.tp_frame_size = blockBytes;
    request.tp_frame_nr = blocks;
    request.tp_retire_blk_tov = longestWaitMilliseconds;
    setOption(socket_.value(), PACKET_RX_RING, request, "creating the receive ring");
    void* memory = mmap(nullptr, ringBytes, PROT_READ | PROT_WRITE, MAP_SHARED, socket_.value(), 0);
    if (memory == MAP_FAILED) {
        Posix::fail("mapping the receive ring");
    }
    memory_ = static_cast<std::uint8_t*>(memory);
}

tpacket_block_desc* PacketRing::block(std::uint32_t index) const noexcept {
    return reinterpret_cast<tpacket_block_desc*>(memory_ + std::size_t{index} * blockBytes);
}

bool PacketRing::takeBlock() noexcept {
    assert(!isHeld_ && current_ < blocks);
    tpacket_block_desc& taken = *block(current_);
    if ((statusOf(taken).load(std::memory_order_acquire) & TP_STATUS_USER) == 0) {
        return false;
    }
    isHeld_ = true;
    left_ = taken.hdr.bh1.num_pkts;
    next_ = reinterpret_cast<std::uint8_t*>(&taken) + taken.hdr.bh1.offset_to_first_pkt;
    return true;
}

void PacketRing::releaseBlock() noexcept {
    assert(isHeld_ && left_ == 0);
    statusOf(*block(current_)).store(TP_STATUS_KERNEL, std::memory_order_release);
    isHeld_ = false;
    current_ = (current_ + 1) % blocks;
}

bool PacketRing::next(RingFrame& frame) noexcept {
    while (left_ == 0) {
        if (isHeld_) {
            releaseBlock();
        }
        if (!takeBlock()) {
            return false;
        }
    }
    const auto* header = reinterpret_cast<const tpacket3_hdr*>(next_);
    frame.bytes = {next_ + header->tp_mac, header->tp_snaplen};
    frame.header = header;
    std::memcpy(&frame.offloaded, frame.bytes.data() - sizeof frame.offloaded,
                sizeof frame.offloaded);
    next_ += header->tp_next_offset;
    --left_;
    return true;
}

void PacketRing::stopIntake() noexcept {
    sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog program{1, &nothing};
    setsockopt(socket_.value(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

std::uint64_t PacketRing::takeDrops() noexcept {
    tpacket_stats_v3 statistics{};
    socklen_t size = sizeof statistics;
    const int refused =
        getsockopt(socket_.value(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size);
    return refused == 0 ? statistics.tp_drops : 0;
}

int PacketRing::takeError() noexcept {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket_.value(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

} // namespace OvixAgent
