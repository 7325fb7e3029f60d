#include "Live/ports/PacketIntake.h"

#include <arpa/inet.h>
#include <array>
#include <initializer_list>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <vector>

#include "Posix/SystemError.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

constexpr std::uint32_t etherTypeAt = Wire::Ethernet::etherTypeAt;
constexpr std::uint32_t packetType = static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE);
constexpr std::uint32_t hadTag = static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_VLAN_TAG_PRESENT);
constexpr std::array<std::uint16_t, 3> tagTypes{Wire::EtherType::vlan, Wire::EtherType::serviceVlan,
                                                Wire::EtherType::stackedVlan};
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

/// Of frames that are not for the interface's MAC those that a VLAN device may have: labelled ones
/// and IP with a tag, which the kernel has removed or not. Others are refused.
std::vector<sock_filter> vlanFilter() {
    namespace EtherType = Wire::EtherType;
    std::vector<sock_filter> program{loadHalfWord(etherTypeAt)};
    for (const std::uint16_t type : tagTypes) {
        append(program, {unlessEqualSkip(type, 1), accept(wholeFrame)});
    }
    append(program,
           {loadByte(hadTag), unlessEqualSkip(0, 1), accept(0), loadHalfWord(etherTypeAt)});
    for (const std::uint16_t type :
         {EtherType::mpls, EtherType::mplsUpstream, EtherType::ipv4, EtherType::ipv6}) {
        append(program, {unlessEqualSkip(type, 1), accept(wholeFrame)});
    }
    program.push_back(accept(0));
    return program;
}

/// A classic BPF program. It sees the Ethernet header without the outermost tag, where the kernel
/// has removed that: of 802.1Q and 802.1ad.
std::vector<sock_filter> packetFilter(PacketIntake intake, bool dropsOutgoing) {
    namespace EtherType = Wire::EtherType;
    std::vector<sock_filter> program;
    if (dropsOutgoing) {
        program = {loadByte(packetType), unlessEqualSkip(PACKET_OUTGOING, 1), accept(0)};
    }
    if (intake == PacketIntake::everything) {
        program.push_back(accept(wholeFrame));
        return program;
    }
    if (intake == PacketIntake::taggedToAny) {
        append(program, {loadByte(hadTag), ifEqualSkip(0, 1), accept(wholeFrame),
                         loadHalfWord(etherTypeAt)});
        for (const std::uint16_t type : tagTypes) {
            append(program, {unlessEqualSkip(type, 1), accept(wholeFrame)});
        }
    }
    if (intake == PacketIntake::toVlans) {
        const std::vector<sock_filter> others = vlanFilter();
        append(program,
               {loadByte(packetType),
                unlessEqualSkip(PACKET_OTHERHOST, static_cast<std::uint8_t>(others.size()))});
        program.insert(program.end(), others.begin(), others.end());
    }
    append(program, {loadByte(packetType), unlessEqualSkip(PACKET_OTHERHOST, 1), accept(0),
                     loadHalfWord(etherTypeAt)});
    for (const std::uint16_t type :
         {EtherType::mpls, EtherType::mplsUpstream, tagTypes[0], tagTypes[1], tagTypes[2]}) {
        append(program, {unlessEqualSkip(type, 1), accept(wholeFrame)});
    }
    if (intake >= PacketIntake::labelledAndIp) {
        append(program,
               {ifEqualSkip(EtherType::ipv4, 2), ifEqualSkip(EtherType::ipv6, 1), accept(0),
                loadByte(packetType), unlessEqualSkip(PACKET_HOST, 1), accept(wholeFrame)});
    }
    program.push_back(accept(0));
    return program;
}

} // namespace

void acceptFrames(int socket, PacketIntake intake, bool dropsOutgoing) {
    std::vector<sock_filter> program = packetFilter(intake, dropsOutgoing);
    const sock_fprog attached{static_cast<unsigned short>(program.size()), program.data()};
    if (setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached) != 0) {
        Posix::fail("attaching the frame filter");
    }
}

void bindToInterface(int socket, unsigned int interfaceIndex) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(interfaceIndex);
    if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        Posix::fail("binding the packet socket");
    }
}

void makePromiscuous(int socket, unsigned int interfaceIndex) {
    packet_mreq request{};
    request.mr_ifindex = static_cast<int>(interfaceIndex);
    request.mr_type = PACKET_MR_PROMISC;
    if (setsockopt(socket, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &request, sizeof request) != 0) {
        Posix::fail("receiving the frames of all stations");
    }
}

void acceptNothing(int socket) noexcept {
    sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog program{1, &nothing};
    setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

} // namespace OvixAgent
