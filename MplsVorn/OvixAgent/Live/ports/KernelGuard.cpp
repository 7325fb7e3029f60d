#include "Live/ports/KernelGuard.h"

#include <array>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <linux/bpf.h>
#include <linux/pkt_cls.h>
#include <span>
#include <sys/socket.h>
#include <system_error>

#include "Posix/SystemError.h"

namespace OvixAgent {

namespace {

constexpr std::uint8_t result = BPF_REG_0;
constexpr std::uint8_t context = BPF_REG_1;

constexpr bpf_insn set(int value) {
    return {BPF_ALU64 | BPF_MOV | BPF_K, result, 0, 0, value};
}
constexpr bpf_insn leave{BPF_JMP | BPF_EXIT, 0, 0, 0, 0};

/// The packet sockets have been served before the ingress hook.
constexpr std::array<bpf_insn, 2> dropAll{set(TC_ACT_SHOT), leave};

constexpr std::array<bpf_insn, 6> dropUnmarked{{
    {BPF_LDX | BPF_MEM | BPF_W, result, context, offsetof(__sk_buff, mark), 0},
    {BPF_JMP | BPF_JNE | BPF_K, result, 0, 2, static_cast<int>(KernelGuard::mark)},
    set(TC_ACT_UNSPEC), // on to the next filter
    leave,
    set(TC_ACT_SHOT),
    leave,
}};

Posix::FileDescriptor load(std::span<const bpf_insn> program) {
    Posix::FileDescriptor loaded(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "ovix_circuit", "GPL",
                                               program.data(), program.size(), nullptr));
    if (!loaded.isOpen()) {
        Posix::fail("loading the program that keeps the kernel away");
    }
    return loaded;
}

bpf_tc_hook hookOf(unsigned int interfaceIndex, bpf_tc_attach_point where) {
    bpf_tc_hook hook{};
    hook.sz = sizeof hook;
    hook.ifindex = static_cast<int>(interfaceIndex);
    hook.attach_point = where;
    return hook;
}

/// Names the agent's filter among others.
bpf_tc_opts ownFilter() {
    bpf_tc_opts filter{};
    filter.sz = sizeof filter;
    filter.handle = 1;
    filter.priority = 0x6f76;
    return filter;
}

} // namespace

KernelGuard::KernelGuard(unsigned int interfaceIndex) : interfaceIndex_(interfaceIndex) {
    libbpf_set_print([](libbpf_print_level, const char*, va_list) { return 0; });
    bpf_tc_hook hook = hookOf(interfaceIndex, BPF_TC_INGRESS);
    const int made = bpf_tc_hook_create(&hook);
    if (made != 0 && made != -EEXIST) {
        Posix::fail("making the hook that keeps the kernel away", -made);
    }
    madeHook_ = made == 0;
    try {
        attach(true);
        attach(false);
    } catch (...) {
        detach();
        throw;
    }
}

KernelGuard::~KernelGuard() {
    detach();
}

void KernelGuard::attach(bool ingress) {
    const Posix::FileDescriptor program =
        load(ingress ? std::span<const bpf_insn>(dropAll) : dropUnmarked);
    const bpf_tc_hook hook = hookOf(interfaceIndex_, ingress ? BPF_TC_INGRESS : BPF_TC_EGRESS);
    bpf_tc_opts filter = ownFilter();
    filter.prog_fd = program.value();
    filter.flags = BPF_TC_F_REPLACE;
    if (const int error = bpf_tc_attach(&hook, &filter); error != 0) {
        Posix::fail("attaching the program that keeps the kernel away", -error);
    }
}

void KernelGuard::detach() noexcept {
    for (const bpf_tc_attach_point where : {BPF_TC_INGRESS, BPF_TC_EGRESS}) {
        const bpf_tc_hook hook = hookOf(interfaceIndex_, where);
        const bpf_tc_opts filter = ownFilter();
        bpf_tc_detach(&hook, &filter);
    }
    if (madeHook_) {
        bpf_tc_hook both = hookOf(interfaceIndex_,
                                  static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS));
        bpf_tc_hook_destroy(&both);
    }
}

void CircuitInterface::intakeIs(unsigned int interfaceIndex, PacketIntake intake) {
    leave();
    if (isPromiscuous(intake)) {
        promiscuous_ = Posix::FileDescriptor(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
        makePromiscuous(promiscuous_.value(), interfaceIndex);
    }
    if (intake == PacketIntake::everything) {
        try {
            guard_.emplace(interfaceIndex);
        } catch (const std::system_error& refused) {
            problem_ = refused.what();
        }
    }
}

void CircuitInterface::leave() noexcept {
    promiscuous_ = Posix::FileDescriptor();
    guard_.reset();
    problem_.clear();
}

} // namespace OvixAgent
