#pragma once

#include <cstdint>
#include <string_view>

#include "Lumo/Pkt.h"
#include "Tessel/Ptr.h"

namespace Lumo {

/// Sends whole frames on a network interface, past every protocol of the host. What it holds (a
/// socket) is released with the last handle.
class RawTxPam : public Tessel::Counted {
  public:
    /// A new port is not enabled; one that is not sends nothing.
    virtual void enabledIs(bool enabled) = 0;

    /// The EtherType, in host byte order, under which the network stack takes the frames.
    virtual void ethProtocolIs(std::uint16_t protocol) = 0;

    /// Sends a frame, its Ethernet header first, on the interface of that index; 0 is none. False
    /// when it was not sent: the port is not enabled, or the stack refuses.
    virtual bool send(const Ptr<Pkt>& packet, std::uint32_t interfaceIndex) = 0;
};

/// Where raw frames go. Installed by the agent before frames flow; whoever sends does not see which
/// one it is.
class RawTxBackend {
  public:
    RawTxBackend() = default;
    RawTxBackend(const RawTxBackend&) = delete;
    RawTxBackend& operator=(const RawTxBackend&) = delete;
    virtual ~RawTxBackend() = default;

    virtual Ptr<RawTxPam> rawTxPam(std::string_view interfaceName) = 0;
    /// 0 when there is no such interface.
    virtual std::uint32_t interfaceIndex(std::string_view interfaceName) = 0;

    /// The one in use: the kernel's packet sockets unless the agent says otherwise.
    static RawTxBackend& current() noexcept;
    /// Null puts back the kernel's. Not owned: a backend is taken out before it goes.
    static void currentIs(RawTxBackend* backend) noexcept;
};

/// A port, not yet enabled, on the interface of that name.
Ptr<RawTxPam> rawTxPamFactory(std::string_view interfaceName);

/// The index of an interface in the agent's network namespace; 0 when there is none of that name.
std::uint32_t if_nametoindexAt(std::string_view interfaceName);

} // namespace Lumo
