#include "kernel/KernelLinks.h"

#include <cerrno>
#include <functional>
#include <libmnl/libmnl.h>
#include <limits>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

namespace OvixFpm {

namespace {

constexpr std::size_t longestMessages = 1U << 17U; // an interface with many virtual functions

struct Found {
    KernelLink link;
    bool isVrf = false;
};

std::string_view textOf(const nlattr& attribute) {
    const std::string_view all(static_cast<const char*>(mnl_attr_get_payload(&attribute)),
                               mnl_attr_get_payload_len(&attribute));
    return all.substr(0, all.find('\0'));
}

int takeVrfData(const nlattr* attribute, void* to) {
    if (mnl_attr_get_type(attribute) == IFLA_VRF_TABLE &&
        mnl_attr_validate(attribute, MNL_TYPE_U32) == 0) {
        static_cast<Found*>(to)->link.vrfTable = mnl_attr_get_u32(attribute);
    }
    return MNL_CB_OK;
}

// The kind comes before the data, whose attributes mean what the kind says.
int takeLinkInfo(const nlattr* attribute, void* to) {
    Found& found = *static_cast<Found*>(to);
    if (mnl_attr_get_type(attribute) == IFLA_INFO_KIND) {
        found.isVrf = textOf(*attribute) == "vrf";
    } else if (mnl_attr_get_type(attribute) == IFLA_INFO_DATA && found.isVrf) {
        mnl_attr_parse_nested(attribute, takeVrfData, to);
    }
    return MNL_CB_OK;
}

int takeAttribute(const nlattr* attribute, void* to) {
    if (mnl_attr_get_type(attribute) == IFLA_IFNAME) {
        static_cast<Found*>(to)->link.name = textOf(*attribute);
    } else if (mnl_attr_get_type(attribute) == IFLA_LINKINFO) {
        mnl_attr_parse_nested(attribute, takeLinkInfo, to);
    }
    return MNL_CB_OK;
}

using LinkVisitor = std::function<void(KernelLink)>;

int takeMessage(const nlmsghdr* message, void* to) {
    if (auto link = readLink(*message)) {
        (*static_cast<const LinkVisitor*>(to))(*std::move(link));
    }
    return MNL_CB_OK;
}

[[noreturn]] void refuse() {
    throw std::system_error(errno, std::generic_category(), "asking the kernel for interfaces");
}

/// Asks for the interface of that index, or for all. False when there is no such interface.
bool askForLinks(std::uint32_t index, const LinkVisitor& visitor) {
    const std::unique_ptr<mnl_socket, int (*)(mnl_socket*)> socket(
        mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), mnl_socket_close);
    struct {
        nlmsghdr header;
        ifinfomsg about;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags =
        static_cast<std::uint16_t>(NLM_F_REQUEST | (index == 0 ? NLM_F_DUMP : NLM_F_ACK));
    request.about.ifi_index = static_cast<int>(index);
    if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) != 0 ||
        mnl_socket_sendto(socket.get(), &request, sizeof request) < 0) {
        refuse();
    }
    std::vector<std::uint8_t> buffer(longestMessages);
    for (int more = MNL_CB_OK; more > MNL_CB_STOP;) {
        const ssize_t size = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
        more = size < 0 ? MNL_CB_ERROR
                        : mnl_cb_run(buffer.data(), static_cast<std::size_t>(size), 0,
                                     mnl_socket_get_portid(socket.get()), takeMessage,
                                     const_cast<LinkVisitor*>(&visitor));
        if (more == MNL_CB_ERROR) {
            if (errno == ENODEV) {
                return false;
            }
            refuse();
        }
    }
    return true;
}

} // namespace

std::optional<KernelLink> readLink(const nlmsghdr& message) {
    if (message.nlmsg_type != RTM_NEWLINK ||
        mnl_nlmsg_get_payload_len(&message) < sizeof(ifinfomsg)) {
        return std::nullopt;
    }
    Found found;
    mnl_attr_parse(&message, sizeof(ifinfomsg), takeAttribute, &found);
    return found.link.name.empty() ? std::nullopt : std::optional(found.link);
}

std::optional<KernelLink> linkOfIndex(std::uint32_t index) {
    std::optional<KernelLink> found;
    if (index != 0 && index <= std::numeric_limits<std::int32_t>::max()) {
        askForLinks(index, [&](KernelLink link) { found = std::move(link); });
    }
    return found;
}

std::map<std::uint32_t, std::string> vrfNamesByTable() {
    std::map<std::uint32_t, std::string> names;
    askForLinks(0, [&](const KernelLink& link) {
        if (link.vrfTable != 0) {
            names.emplace(link.vrfTable, link.name);
        }
    });
    return names;
}

const std::optional<KernelLink>& InterfaceLookup::find(std::uint32_t index) {
    const auto known = known_.find(index);
    return known != known_.end() ? known->second : known_.emplace(index, ask(index)).first->second;
}

std::optional<std::string> InterfaceLookup::vrfOfTable(std::uint32_t table) {
    if (!vrfs_) {
        vrfs_ = askForVrfs();
    }
    const auto found = vrfs_->find(table);
    return found != vrfs_->end() ? std::optional(found->second) : std::nullopt;
}

} // namespace OvixFpm
