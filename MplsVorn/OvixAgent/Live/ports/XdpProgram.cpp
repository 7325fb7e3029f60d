#include "Live/ports/XdpProgram.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <cerrno>
#include <cstdarg>
#include <system_error>

#include "Posix/SystemError.h"

namespace OvixAgent {

namespace {

// XdpRedirect.bpf.c, compiled for the kernel when the agent was built.
constexpr unsigned char redirectObject[] = {
#include <XdpRedirect.inc>
};

/// What the program calls an intake.
std::uint32_t numberOf(PacketIntake intake) noexcept {
    switch (intake) {
    case PacketIntake::everything:
        return 2;
    case PacketIntake::taggedToAny:
        return 1;
    case PacketIntake::toVlans:
        return 3;
    default:
        return 0;
    }
}

int printNothing(libbpf_print_level, const char*, va_list) {
    return 0;
}

} // namespace

void XdpProgram::Closer::operator()(bpf_object* object) const noexcept {
    bpf_object__close(object);
}

void XdpProgram::Closer::operator()(bpf_link* link) const noexcept {
    bpf_link__destroy(link);
}

XdpProgram::XdpProgram(unsigned int interfaceIndex, const Lumo::EthAddr& station,
                       std::uint32_t queues, PacketIntake intake)
    : queues_(queues) {
    libbpf_set_print(printNothing);
    object_.reset(bpf_object__open_mem(redirectObject, sizeof redirectObject, nullptr));
    if (!object_) {
        Posix::fail("opening the XDP program");
    }
    bpf_map* const constants = bpf_object__find_map_by_name(object_.get(), ".rodata");
    if (constants == nullptr ||
        bpf_map__set_initial_value(constants, station.data(), station.size()) != 0) {
        Posix::fail("setting the MAC of the XDP program", EINVAL);
    }
    bpf_map* const sockets = bpf_object__find_map_by_name(object_.get(), "agentSockets");
    if (const int error = bpf_map__set_max_entries(sockets, queues); error != 0) {
        Posix::fail("setting the number of queues of the XDP program", -error);
    }
    if (const int error = bpf_object__load(object_.get()); error != 0) {
        Posix::fail("loading the XDP program", -error);
    }
    sockets_ = bpf_map__fd(sockets);
    intakeIs(intake);
    const bpf_program* const program =
        bpf_object__find_program_by_name(object_.get(), "redirectLabelled");
    link_.reset(bpf_program__attach_xdp(program, static_cast<int>(interfaceIndex)));
    if (!link_) {
        Posix::fail("attaching the XDP program");
    }
}

void XdpProgram::socketIs(std::uint32_t queue, int socket) const {
    if (bpf_map_update_elem(sockets_, &queue, &socket, BPF_ANY) != 0) {
        Posix::fail("setting the socket of the XDP program");
    }
}

void XdpProgram::intakeIs(PacketIntake intake) {
    constexpr std::uint32_t only = 0;
    const std::uint32_t number = numberOf(intake);
    const int map = bpf_object__find_map_fd_by_name(object_.get(), "agentIntake");
    if (bpf_map_update_elem(map, &only, &number, BPF_ANY) != 0) {
        Posix::fail("setting what the XDP program takes");
    }
}

} // namespace OvixAgent
