#include "Live/carrier/LinkPower.h"

#include <array>
#include <cerrno>
#include <fmt/format.h>
#include <fstream>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <string>

#include "Live/ports/InterfaceControl.h"
#include "Posix/SystemError.h"

namespace OvixAgent {

namespace {

std::string markOf(unsigned int interface) {
    return fmt::format("down-by-ovix-agent-{}", interface);
}

/// A request about a link, to be completed with attributes.
struct LinkRequest {
    LinkRequest(std::uint16_t type, std::uint16_t flags, unsigned int interface)
        : header(mnl_nlmsg_put_header(bytes.data())),
          link(static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(header, sizeof(ifinfomsg)))) {
        header->nlmsg_type = type;
        header->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
        link->ifi_family = AF_UNSPEC;
        link->ifi_index = static_cast<int>(interface);
    }

    alignas(nlmsghdr) std::array<char, 512> bytes{};
    nlmsghdr* header;
    ifinfomsg* link;
};

int takeFlags(const nlmsghdr* message, void* to) {
    if (message->nlmsg_type == RTM_NEWLINK && to != nullptr &&
        mnl_nlmsg_get_payload_len(message) >= sizeof(ifinfomsg)) {
        *static_cast<unsigned int*>(to) =
            static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message))->ifi_flags;
    }
    return MNL_CB_OK;
}

/// While it lives, a link that goes down keeps its IPv6 addresses, which would else be lost.
class KeptAddresses {
  public:
    explicit KeptAddresses(unsigned int interface) {
        path_ = fmt::format("/proc/sys/net/ipv6/conf/{}/keep_addr_on_down",
                            nameOfInterface(interface, {}));
        std::ifstream(path_) >> before_;
        std::ofstream(path_) << 1;
    }
    KeptAddresses(const KeptAddresses&) = delete;
    KeptAddresses& operator=(const KeptAddresses&) = delete;
    ~KeptAddresses() { std::ofstream(path_) << before_; }

  private:
    std::string path_;
    int before_ = 0;
};

} // namespace

void LinkPower::Closer::operator()(mnl_socket* socket) const noexcept {
    mnl_socket_close(socket);
}

LinkPower::LinkPower() : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC)) {
    if (socket_ == nullptr || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) != 0) {
        Posix::fail("opening a socket for links");
    }
}

int LinkPower::ask(nlmsghdr& request, unsigned int* flags) {
    request.nlmsg_seq = ++sequence_;
    if (mnl_socket_sendto(socket_.get(), &request, request.nlmsg_len) < 0) {
        return errno;
    }
    std::array<char, 32768> answer{};
    for (int more = 1; more > 0;) {
        const ssize_t size = mnl_socket_recvfrom(socket_.get(), answer.data(), answer.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        more = size < 0 ? -1
                        : mnl_cb_run(answer.data(), static_cast<std::size_t>(size), sequence_,
                                     mnl_socket_get_portid(socket_.get()), takeFlags, flags);
        if (more < 0) {
            return errno;
        }
    }
    return 0;
}

int LinkPower::flagsOf(unsigned int interface, unsigned int& flags) {
    const LinkRequest request(RTM_GETLINK, 0, interface);
    return ask(*request.header, &flags);
}

int LinkPower::upIs(unsigned int interface, bool isUp) {
    const LinkRequest request(RTM_SETLINK, 0, interface);
    request.link->ifi_flags = isUp ? IFF_UP : 0;
    request.link->ifi_change = IFF_UP;
    return ask(*request.header);
}

int LinkPower::mark(unsigned int interface, bool isMarked) {
    const LinkRequest request(isMarked ? RTM_NEWLINKPROP : RTM_DELLINKPROP,
                              isMarked ? NLM_F_CREATE | NLM_F_EXCL : 0, interface);
    nlattr* const properties = mnl_attr_nest_start(request.header, IFLA_PROP_LIST);
    mnl_attr_put_strz(request.header, IFLA_ALT_IFNAME, markOf(interface).c_str());
    mnl_attr_nest_end(request.header, properties);
    return ask(*request.header);
}

bool LinkPower::isMarked(unsigned int interface) {
    const LinkRequest request(RTM_GETLINK, 0, 0);
    mnl_attr_put_strz(request.header, IFLA_ALT_IFNAME, markOf(interface).c_str());
    return ask(*request.header) == 0;
}

// Marked first: a link that is marked and up does no harm.
int LinkPower::takeDown(unsigned int interface) {
    unsigned int flags = 0;
    if (const int refused = flagsOf(interface, flags); refused != 0) {
        return refused;
    }
    if ((flags & IFF_UP) == 0) {
        return 0;
    }
    if (const int refused = mark(interface, true); refused != 0 && refused != EEXIST) {
        return refused;
    }
    const KeptAddresses kept(interface);
    return upIs(interface, false);
}

int LinkPower::giveBack(unsigned int interface) {
    if (!isMarked(interface)) {
        return 0;
    }
    const int refused = upIs(interface, true);
    return refused != 0 ? refused : mark(interface, false);
}

int LinkPower::tryOut(unsigned int interface) {
    unsigned int flags = 0;
    const int unknown = flagsOf(interface, flags);
    return unknown != 0 ? unknown : upIs(interface, (flags & IFF_UP) != 0);
}

} // namespace OvixAgent
