#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "Live/links/LinkTable.h"

struct mnl_socket;
struct nlmsghdr;

namespace OvixAgent {

/// Follows the network interfaces of this host and their IPv4 and IPv6 neighbours by rtnetlink.
/// After an overrun everything is requested again, and entries that are missing then have been
/// removed.
class LinkMonitor {
  public:
    /// Requests all interfaces and neighbours, which `receive()` then reports. Throws
    /// std::system_error.
    explicit LinkMonitor(LinkEvents events);

    /// To be polled for input.
    int descriptor() const noexcept;

    /// Processes the kernel's messages and reports changes. Does not block.
    void receive();

    /// Whether everything requested has been received.
    bool isComplete() const noexcept { return requested_ == Request::nothing; }

    /// Null when no interface has the name. Valid until the next receive().
    const LinkState* linkNamed(const std::string& name) const noexcept {
        return table_.linkNamed(name);
    }

    /// Null when no interface has the index. Likewise.
    const LinkState* link(std::uint32_t index) const noexcept { return table_.link(index); }

    /// Reports a link as down, ahead of the kernel, which reports it later whatever it is then.
    void carrierDel(std::uint32_t index) { table_.carrierDel(index); }

    /// Makes the kernel resolve or confirm the neighbour's MAC; the result is reported as an event.
    /// False when the request could not be sent.
    ///
    /// The request is a neighbour entry in use (NTF_USE). It starts the query (ARP, RFC 826;
    /// neighbour discovery, RFC 4861) as a packet would, also for a neighbour that has failed
    /// before, and confirms a stale one. Unlike a packet, it needs no route and puts only the query
    /// on the wire. The interface must be up, and for IPv6 have its link-local address.
    bool solicit(std::uint32_t link, const Lumo::IpGenAddr& address);

    /// The number of times that messages were lost.
    std::uint64_t overruns() const noexcept { return overruns_; }
    /// The number of solicits that the kernel has refused: the interface is down or removed.
    std::uint64_t refusedSolicits() const noexcept { return refusedSolicits_; }

  private:
    enum class Request : std::uint8_t { nothing, links, neighbours };

    struct Closer {
        void operator()(mnl_socket* socket) const noexcept;
    };

    void requestAll();
    void request(Request what);
    void take(std::span<const std::uint8_t> messages);
    void take(const nlmsghdr& message);
    void takeError(const nlmsghdr& message);
    void takeEnd();

    std::unique_ptr<mnl_socket, Closer> socket_;
    LinkTable table_;
    std::vector<std::uint8_t> buffer_;
    std::uint32_t sequence_ = 0;
    std::uint32_t requestSequence_ = 0;
    Request requested_ = Request::nothing;
    bool mustRepeat_ = false; ///< the answers are inconsistent
    std::uint64_t overruns_ = 0;
    std::uint64_t refusedSolicits_ = 0;
};

} // namespace OvixAgent
