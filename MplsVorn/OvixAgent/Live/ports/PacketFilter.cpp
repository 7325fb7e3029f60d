#include "Live/ports/PacketFilter.h"

#include <initializer_list>
#include <linux/if_packet.h>

#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

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

} // namespace

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

} // namespace OvixAgent
