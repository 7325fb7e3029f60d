#pragma once

#include <optional>
#include <string>

#include "Live/ports/PacketIntake.h"
#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// Keeps the host's network stack away from an attachment circuit: what comes in at the interface
/// goes no further than the sockets of the agent, and only the agent sends there. So nobody but the
/// other end of the pseudowire answers the customer's ARP, and nothing that this host says of
/// itself gets to the customer.
///
/// Two programs at the interface's clsact hook (tc-bpf(8)), removed with this object. When the
/// process is killed they stay, and the circuit stays silent, until the next agent takes them over.
class KernelGuard {
  public:
    /// What frames of the agent's own sockets are marked with (SO_MARK), which lets them pass.
    static constexpr unsigned int mark = 0x6f766978;

    /// Throws std::system_error, whose text names the step that failed.
    explicit KernelGuard(unsigned int interfaceIndex);
    KernelGuard(const KernelGuard&) = delete;
    KernelGuard& operator=(const KernelGuard&) = delete;
    ~KernelGuard();

  private:
    void attach(bool ingress);
    void detach() noexcept;

    unsigned int interfaceIndex_;
    bool madeHook_ = false; ///< rather than found it
};

/// What an interface must be for a port's intake: promiscuous for frames to any station, and
/// without the kernel for an attachment circuit.
class CircuitInterface {
  public:
    /// Throws std::system_error when the interface cannot be made promiscuous.
    void intakeIs(unsigned int interfaceIndex, PacketIntake intake);
    /// The interface is left as it was.
    void leave() noexcept;
    /// Why the kernel could not be kept away; empty when it is, or need not be.
    const std::string& problem() const noexcept { return problem_; }

  private:
    Posix::FileDescriptor promiscuous_; ///< a socket that receives nothing
    std::optional<KernelGuard> guard_;
    std::string problem_;
};

} // namespace OvixAgent
