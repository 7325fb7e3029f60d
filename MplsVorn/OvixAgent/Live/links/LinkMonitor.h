#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "Live/links/LinkTable.h"

struct mnl_socket;
struct nlmsghdr;

namespace OvixAgent {

/// Follows the network interfaces of this host and their IPv4 and IPv6 neighbours, as the kernel
/// reports them by rtnetlink. When more has happened than could be reported, everything is asked
/// for anew, and what has gone in the meantime is found by its absence.
class LinkMonitor {
  public:
    /// Asks for everything there is; it comes with `receive()`. Throws std::system_error.
    explicit LinkMonitor(LinkEvents events);

    /// What to poll for input.
    int descriptor() const noexcept;

    /// Takes in what the kernel has reported, and tells of what is new in it. Does not block.
    void receive();

    /// What is known so far. Complete once `isComplete()`.
    const LinkTable& table() const noexcept { return table_; }
    /// Whether everything that was asked for has come.
    bool isComplete() const noexcept { return asking_ == Asking::nothing; }

    /// Asks the kernel to find the neighbour's MAC, or to confirm it; what comes of it is an event.
    /// False when the kernel could not even be asked.
    ///
    /// What is asked for is a neighbour entry in use (NTF_USE). It starts the query (ARP, RFC 826;
    /// neighbour discovery, RFC 4861) as a packet that is to be sent would, also for a neighbour
    /// that has failed before, and has a stale one confirmed. Unlike a datagram sent for the
    /// purpose, it takes no route, and puts nothing but the query on the wire. The interface must
    /// be up, and for IPv6 have its link-local address.
    bool solicit(std::uint32_t link, const IpAddress& address);

    /// How often more had happened than could be reported.
    std::uint64_t overruns() const noexcept { return overruns_; }
    /// How many queries for a neighbour the kernel has refused: the interface is gone, or down.
    std::uint64_t refusedSolicits() const noexcept { return refusedSolicits_; }

  private:
    enum class Asking : std::uint8_t { nothing, links, neighbours };

    struct Closer {
        void operator()(mnl_socket* socket) const noexcept;
    };

    void askAnew();
    void ask(Asking what);
    void take(std::span<const std::uint8_t> messages);
    void take(const nlmsghdr& message);
    void takeError(const nlmsghdr& message);
    void takeEnd();

    std::unique_ptr<mnl_socket, Closer> socket_;
    LinkTable table_;
    std::vector<std::uint8_t> buffer_;
    std::uint32_t sequence_ = 0;
    std::uint32_t askedBy_ = 0; ///< sequence number of the request that is being answered
    Asking asking_ = Asking::nothing;
    bool mustAskAgain_ = false; ///< the answers so far do not fit together
    std::uint64_t overruns_ = 0;
    std::uint64_t refusedSolicits_ = 0;
};

} // namespace OvixAgent
