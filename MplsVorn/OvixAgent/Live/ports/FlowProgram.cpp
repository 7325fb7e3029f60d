#include "Live/ports/FlowProgram.h"

#include <cstdint>
#include <initializer_list>
#include <netinet/in.h>
#include <utility>

#include "Wire/Ethernet.h"
#include "Wire/Ip.h"

namespace OvixAgent {

namespace {

constexpr int deepestStack = 16;
constexpr std::uint32_t vlanNumber = 0xfff;

constexpr std::uint32_t auxiliary(int what) {
    return static_cast<std::uint32_t>(SKF_AD_OFF + what);
}

/// The program sees a frame from behind its EtherType, and behind a tag that the kernel has
/// removed. `offset` is where it reads.
class Program {
  public:
    /// Words of its memory.
    enum Place : std::uint32_t { hash, offset, word };

    std::vector<sock_filter> code;

    void add(std::initializer_list<sock_filter> more) {
        code.insert(code.end(), more.begin(), more.end());
    }

    /// Mixes the accumulator into the hash.
    void mix() {
        add({{BPF_LDX | BPF_MEM, 0, 0, hash},
             {BPF_ALU | BPF_XOR | BPF_X, 0, 0, 0},
             {BPF_ALU | BPF_MUL | BPF_K, 0, 0, 0x9e3779b1},
             {BPF_ST, 0, 0, hash}});
    }

    /// Loads of `size` (BPF_W, BPF_H or BPF_B) that many bytes behind the offset.
    void load(std::uint16_t size, std::size_t behind) {
        add({{BPF_LDX | BPF_MEM, 0, 0, offset},
             {static_cast<std::uint16_t>(BPF_LD | BPF_IND | size), 0, 0,
              static_cast<std::uint32_t>(behind)}});
    }

    void advance(std::uint32_t bytes) {
        add({{BPF_LD | BPF_MEM, 0, 0, offset},
             {BPF_ALU | BPF_ADD | BPF_K, 0, 0, bytes},
             {BPF_ST, 0, 0, offset}});
    }

    /// Ends unless that many bytes are behind the offset.
    void need(std::uint32_t bytes) {
        add({{BPF_LD | BPF_W | BPF_LEN, 0, 0, 0},
             {BPF_LDX | BPF_MEM, 0, 0, offset},
             {BPF_ALU | BPF_SUB | BPF_X, 0, 0, 0},
             {BPF_JMP | BPF_JGE | BPF_K, 1, 0, bytes}});
        leaveTo(ends_);
    }

    /// A jump whose target is not known yet.
    using Jumps = std::vector<std::size_t>;
    void leaveTo(Jumps& jumps) {
        jumps.push_back(code.size());
        add({{BPF_JMP | BPF_JA, 0, 0, 0}});
    }
    void leaveIf(std::uint32_t value, Jumps& jumps) {
        add({{BPF_JMP | BPF_JEQ | BPF_K, 0, 1, value}});
        leaveTo(jumps);
    }
    void leaveToEnd() { leaveTo(ends_); }
    void hereArrive(const Jumps& jumps) {
        for (const std::size_t from : jumps) {
            code[from].k = static_cast<std::uint32_t>(code.size() - from - 1);
        }
    }

    /// The lowest bits, by which a queue is chosen, depend on every bit of what was mixed.
    void finish() {
        hereArrive(ends_);
        add({{BPF_LD | BPF_MEM, 0, 0, hash}});
        for (const std::uint32_t factor : {0x85ebca6bU, 0xc2b2ae35U}) {
            fold();
            add({{BPF_ALU | BPF_MUL | BPF_K, 0, 0, factor}});
        }
        fold();
        add({{BPF_RET | BPF_A, 0, 0, 0}});
    }

  private:
    void fold() {
        add({{BPF_MISC | BPF_TAX, 0, 0, 0},
             {BPF_ALU | BPF_RSH | BPF_K, 0, 0, 16},
             {BPF_ALU | BPF_XOR | BPF_X, 0, 0, 0}});
    }

    Jumps ends_;
};

/// Leaves the EtherType behind the tags in `word`.
void addTags(Program& program) {
    program.add({{BPF_LD | BPF_W | BPF_ABS, 0, 0, auxiliary(SKF_AD_VLAN_TAG)},
                 {BPF_ALU | BPF_AND | BPF_K, 0, 0, vlanNumber}});
    program.mix();
    program.add({{BPF_LD | BPF_W | BPF_ABS, 0, 0, auxiliary(SKF_AD_PROTOCOL)},
                 {BPF_ST, 0, 0, Program::word}});
    Program::Jumps untagged;
    for (std::size_t i = 0; i < Wire::Tag::maxTags; ++i) {
        Program::Jumps tagged;
        for (const std::uint16_t type :
             {Wire::EtherType::vlan, Wire::EtherType::serviceVlan, Wire::EtherType::stackedVlan}) {
            program.leaveIf(type, tagged);
        }
        program.leaveTo(untagged);
        program.hereArrive(tagged);
        program.need(Wire::Tag::size);
        program.load(BPF_H, 0);
        program.add({{BPF_ALU | BPF_AND | BPF_K, 0, 0, vlanNumber}});
        program.mix();
        program.load(BPF_H, 2);
        program.add({{BPF_ST, 0, 0, Program::word}});
        program.advance(Wire::Tag::size);
        program.add({{BPF_LD | BPF_MEM, 0, 0, Program::word}});
    }
    program.hereArrive(untagged);
}

/// Ends at the first byte beneath the stack.
void addLabels(Program& program) {
    constexpr std::uint32_t entryBytes = 4;
    constexpr std::uint32_t bottom = 0x100;
    Program::Jumps beneath;
    for (int i = 0; i < deepestStack; ++i) {
        program.need(entryBytes);
        program.load(BPF_W, 0);
        program.add({{BPF_ST, 0, 0, Program::word}, {BPF_ALU | BPF_RSH | BPF_K, 0, 0, 12}});
        program.mix();
        program.advance(entryBytes);
        program.add(
            {{BPF_LD | BPF_MEM, 0, 0, Program::word}, {BPF_ALU | BPF_AND | BPF_K, 0, 0, bottom}});
        program.leaveIf(bottom, beneath);
    }
    program.leaveToEnd();
    program.hereArrive(beneath);
}

/// With the protocol in `word` and the transport header at the offset.
void addPorts(Program& program) {
    Program::Jumps withPorts;
    program.add({{BPF_LD | BPF_MEM, 0, 0, Program::word}});
    for (const int protocol :
         {IPPROTO_TCP, IPPROTO_UDP, IPPROTO_SCTP, IPPROTO_DCCP, IPPROTO_UDPLITE}) {
        program.leaveIf(static_cast<std::uint32_t>(protocol), withPorts);
    }
    program.leaveToEnd();
    program.hereArrive(withPorts);
    program.need(4);
    program.load(BPF_W, 0);
    program.mix();
    program.leaveToEnd();
}

void addIpv4(Program& program) {
    constexpr std::uint32_t moreOrOffset = 0x3fff;
    program.need(Wire::Ipv4::size);
    for (const std::size_t address : {Wire::Ipv4::sourceAt, Wire::Ipv4::destinationAt}) {
        program.load(BPF_W, address);
        program.mix();
    }
    program.load(BPF_B, Wire::Ipv4::protocolAt);
    program.add({{BPF_ST, 0, 0, Program::word}});
    program.mix();
    program.load(BPF_H, Wire::Ipv4::fragmentAt);
    program.add({{BPF_JMP | BPF_JSET | BPF_K, 0, 1, moreOrOffset}});
    program.leaveToEnd();
    program.load(BPF_B, 0);
    program.add({{BPF_ALU | BPF_AND | BPF_K, 0, 0, 0xf},
                 {BPF_ALU | BPF_LSH | BPF_K, 0, 0, 2},
                 {BPF_LDX | BPF_MEM, 0, 0, Program::offset},
                 {BPF_ALU | BPF_ADD | BPF_X, 0, 0, 0},
                 {BPF_ST, 0, 0, Program::offset}});
    addPorts(program);
}

/// A flow label takes the place of ports (RFC 6438), also of fragments. Without one, those behind
/// extension headers are told apart by their addresses alone.
void addIpv6(Program& program) {
    constexpr std::uint32_t flowLabel = 0xfffff;
    program.need(Wire::Ipv6::size);
    for (std::size_t at = Wire::Ipv6::sourceAt; at < Wire::Ipv6::size; at += 4) {
        program.load(BPF_W, at);
        program.mix();
    }
    program.load(BPF_W, 0);
    program.add({{BPF_ALU | BPF_AND | BPF_K, 0, 0, flowLabel}});
    Program::Jumps unlabelled;
    program.leaveIf(0, unlabelled);
    program.mix();
    program.leaveToEnd();
    program.hereArrive(unlabelled);
    program.load(BPF_B, Wire::Ipv6::nextHeaderAt);
    program.add({{BPF_ST, 0, 0, Program::word}});
    program.advance(Wire::Ipv6::size);
    addPorts(program);
}

void addMacs(Program& program) {
    constexpr auto header = static_cast<std::uint32_t>(SKF_LL_OFF);
    for (std::uint32_t at = 0; at < Wire::Ethernet::etherTypeAt; at += 4) {
        program.add({{BPF_LD | BPF_W | BPF_ABS, 0, 0, header + at}});
        program.mix();
    }
    program.leaveToEnd();
}

} // namespace

std::vector<sock_filter> flowProgram() {
    Program program;
    program.add({{BPF_LD | BPF_IMM, 0, 0, 0},
                 {BPF_ST, 0, 0, Program::offset},
                 {BPF_ST, 0, 0, Program::hash}});
    addTags(program);
    Program::Jumps labelled;
    Program::Jumps ipv4;
    Program::Jumps ipv6;
    program.leaveIf(Wire::EtherType::mpls, labelled);
    program.leaveIf(Wire::EtherType::mplsUpstream, labelled);
    program.leaveIf(Wire::EtherType::ipv4, ipv4);
    program.leaveIf(Wire::EtherType::ipv6, ipv6);
    addMacs(program);
    program.hereArrive(labelled);
    addLabels(program);
    program.need(1);
    program.load(BPF_B, 0);
    program.add({{BPF_ALU | BPF_RSH | BPF_K, 0, 0, 4}});
    program.leaveIf(4, ipv4);
    program.leaveIf(6, ipv6);
    program.leaveToEnd();
    program.hereArrive(ipv4);
    addIpv4(program);
    program.hereArrive(ipv6);
    addIpv6(program);
    program.finish();
    return std::move(program.code);
}

} // namespace OvixAgent
