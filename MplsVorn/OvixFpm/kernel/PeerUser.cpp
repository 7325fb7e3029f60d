#include "kernel/PeerUser.h"

#include <array>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>

namespace OvixFpm {

namespace {

/// An end of a connection as sock_diag names it.
struct End {
    sa_family_t family = AF_UNSPEC;
    std::uint16_t port = 0;                 ///< big endian
    std::array<std::uint32_t, 4> address{}; ///< likewise
};

using NameOf = int (*)(int, sockaddr*, socklen_t*);

End endOf(const Posix::FileDescriptor& connection, NameOf nameOf) {
    sockaddr_storage name{};
    socklen_t size = sizeof name;
    if (nameOf(connection.value(), reinterpret_cast<sockaddr*>(&name), &size) != 0) {
        return {};
    }
    End end;
    end.family = name.ss_family;
    if (name.ss_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(name);
        end.port = four.sin_port;
        end.address[0] = four.sin_addr.s_addr;
    } else if (name.ss_family == AF_INET6) {
        const auto& six = reinterpret_cast<const sockaddr_in6&>(name);
        end.port = six.sin6_port;
        std::memcpy(end.address.data(), &six.sin6_addr, sizeof end.address);
    }
    return end;
}

struct Request {
    nlmsghdr header;
    inet_diag_req_v2 about;
};

/// Asks for the socket that `local` is the local end of.
Request requestFor(const End& local, const End& remote) {
    Request request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.about.sdiag_family = static_cast<std::uint8_t>(local.family);
    request.about.sdiag_protocol = IPPROTO_TCP;
    request.about.idiag_states = ~0U;
    inet_diag_sockid& id = request.about.id;
    id.idiag_sport = local.port;
    id.idiag_dport = remote.port;
    std::memcpy(id.idiag_src, local.address.data(), sizeof id.idiag_src);
    std::memcpy(id.idiag_dst, remote.address.data(), sizeof id.idiag_dst);
    id.idiag_cookie[0] = id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return request;
}

// A socket that its process has closed has no inode any more, and then says that it is root's.
int takeSocket(const nlmsghdr* message, void* to) {
    if (message->nlmsg_type == SOCK_DIAG_BY_FAMILY &&
        mnl_nlmsg_get_payload_len(message) >= sizeof(inet_diag_msg)) {
        const auto* found = static_cast<const inet_diag_msg*>(mnl_nlmsg_get_payload(message));
        if (found->idiag_inode != 0) {
            *static_cast<std::optional<uid_t>*>(to) = found->idiag_uid;
        }
    }
    return MNL_CB_STOP;
}

} // namespace

std::optional<uid_t> peerUser(const Posix::FileDescriptor& connection) {
    const Request request =
        requestFor(endOf(connection, getpeername), endOf(connection, getsockname));
    const std::unique_ptr<mnl_socket, int (*)(mnl_socket*)> socket(
        mnl_socket_open2(NETLINK_SOCK_DIAG, SOCK_CLOEXEC), mnl_socket_close);
    std::optional<uid_t> user;
    std::array<std::uint8_t, 8192> buffer;
    if (socket && mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) == 0 &&
        mnl_socket_sendto(socket.get(), &request, sizeof request) > 0) {
        const ssize_t size = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
        if (size > 0) {
            mnl_cb_run(buffer.data(), static_cast<std::size_t>(size), 0,
                       mnl_socket_get_portid(socket.get()), takeSocket, &user);
        }
    }
    return user;
}

} // namespace OvixFpm
