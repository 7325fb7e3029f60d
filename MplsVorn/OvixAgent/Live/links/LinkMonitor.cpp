#include "Live/links/LinkMonitor.h"

#include <cassert>
#include <cerrno>
#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

#include "Live/links/LinkMessages.h"
#include "Posix/SystemError.h"

namespace OvixAgent {

namespace {

constexpr std::size_t longestMessages = 1U << 17U; // an interface with many virtual functions
constexpr int receiveBuffer = 1 << 22;

constexpr unsigned int group(rtnetlink_groups number) {
    return 1U << (static_cast<unsigned int>(number) - 1);
}

} // namespace

void LinkMonitor::Closer::operator()(mnl_socket* socket) const noexcept {
    mnl_socket_close(socket);
}

LinkMonitor::LinkMonitor(LinkEvents events)
    : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC)),
      table_(std::move(events)), buffer_(longestMessages) {
    if (!socket_) {
        Posix::fail("opening a netlink socket");
    }
    // Fails without the privilege; overruns are then more frequent.
    setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer);
    if (mnl_socket_bind(socket_.get(), group(RTNLGRP_LINK) | group(RTNLGRP_NEIGH),
                        MNL_SOCKET_AUTOPID) != 0) {
        Posix::fail("joining the groups of link and neighbour events");
    }
    requestAll();
}

int LinkMonitor::descriptor() const noexcept {
    return mnl_socket_get_fd(socket_.get());
}

// One request at a time: the kernel accepts no second dump before the first has ended.
void LinkMonitor::requestAll() {
    if (requested_ != Request::nothing) {
        mustRepeat_ = true;
        return;
    }
    mustRepeat_ = false;
    table_.startConfirming();
    request(Request::links);
}

void LinkMonitor::request(Request what) {
    assert(what != Request::nothing && requested_ == Request::nothing);
    struct {
        nlmsghdr header;
        rtgenmsg about;
    } message{};
    message.header.nlmsg_len = NLMSG_LENGTH(sizeof message.about);
    message.header.nlmsg_type = what == Request::links ? RTM_GETLINK : RTM_GETNEIGH;
    message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message.header.nlmsg_seq = ++sequence_;
    message.about.rtgen_family = AF_UNSPEC;
    if (mnl_socket_sendto(socket_.get(), &message, message.header.nlmsg_len) < 0) {
        Posix::fail("requesting links and neighbours");
    }
    requestSequence_ = sequence_;
    requested_ = what;
}

void LinkMonitor::receive() {
    for (;;) {
        const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer_.data(), buffer_.size());
        if (size >= 0) {
            take({buffer_.data(), static_cast<std::size_t>(size)});
        } else if (errno == EAGAIN) {
            return;
        } else if (errno == ENOBUFS || errno == ENOSPC) { // messages lost or truncated
            ++overruns_;
            requestAll();
        } else if (errno != EINTR) {
            Posix::fail("receiving link and neighbour events");
        }
    }
}

void LinkMonitor::take(std::span<const std::uint8_t> messages) {
    visitMessages(messages, [this](const nlmsghdr& message) { take(message); });
}

void LinkMonitor::take(const nlmsghdr& message) {
    if ((message.nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
        mustRepeat_ = true;
    }
    switch (message.nlmsg_type) {
    case NLMSG_ERROR:
        takeError(message);
        break;
    case NLMSG_DONE:
        takeEnd();
        break;
    case RTM_NEWLINK:
        if (const auto link = readLinkMessage(message)) {
            table_.linkIs(*link);
        }
        break;
    case RTM_DELLINK:
        if (const auto link = readLinkMessage(message)) {
            table_.linkDel(link->index);
        }
        break;
    case RTM_NEWNEIGH:
        if (const auto neighbour = readNeighbourMessage(message)) {
            table_.neighbourIs(*neighbour);
        }
        break;
    case RTM_DELNEIGH:
        if (const auto neighbour = readNeighbourMessage(message)) {
            table_.neighbourDel(*neighbour);
        }
        break;
    default:
        break;
    }
}

void LinkMonitor::takeError(const nlmsghdr& message) {
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(nlmsgerr)) {
        return;
    }
    const auto& error = *static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(&message));
    if (error.error == 0) {
        return;
    }
    if (error.msg.nlmsg_seq == requestSequence_ && requested_ != Request::nothing) {
        Posix::fail("the kernel refused to report links and neighbours", -error.error);
    }
    ++refusedSolicits_;
}

void LinkMonitor::takeEnd() {
    const Request answered = std::exchange(requested_, Request::nothing);
    if (mustRepeat_) {
        requestAll();
    } else if (answered == Request::links) {
        request(Request::neighbours);
    } else if (answered == Request::neighbours) {
        table_.delUnconfirmed();
    }
}

bool LinkMonitor::solicit(std::uint32_t link, const Lumo::IpGenAddr& address) {
    const bool isIpv4 = address.family() == Lumo::IpFamily::ipv4;
    alignas(nlmsghdr) std::array<std::uint8_t, 128> request{};
    nlmsghdr* const header = mnl_nlmsg_put_header(request.data());
    header->nlmsg_type = RTM_NEWNEIGH;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE;
    header->nlmsg_seq = ++sequence_;
    auto* const entry = static_cast<ndmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(ndmsg)));
    entry->ndm_family = isIpv4 ? AF_INET : AF_INET6;
    entry->ndm_ifindex = static_cast<int>(link);
    entry->ndm_flags = NTF_USE;
    mnl_attr_put(header, NDA_DST, isIpv4 ? 4 : 16, address.bytes().data());
    return mnl_socket_sendto(socket_.get(), header, header->nlmsg_len) >= 0;
}

} // namespace OvixAgent
