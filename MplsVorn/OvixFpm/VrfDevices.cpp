#include "VrfDevices.h"

#include <cerrno>
#include <libmnl/libmnl.h>
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
    VrfDevice device;
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
        static_cast<Found*>(to)->device.table = mnl_attr_get_u32(attribute);
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

int takeLink(const nlattr* attribute, void* to) {
    if (mnl_attr_get_type(attribute) == IFLA_IFNAME) {
        static_cast<Found*>(to)->device.name = textOf(*attribute);
    } else if (mnl_attr_get_type(attribute) == IFLA_LINKINFO) {
        mnl_attr_parse_nested(attribute, takeLinkInfo, to);
    }
    return MNL_CB_OK;
}

int takeMessage(const nlmsghdr* message, void* to) {
    if (auto device = readVrfDevice(*message)) {
        auto& names = *static_cast<std::map<std::uint32_t, std::string>*>(to);
        names.emplace(device->table, std::move(device->name));
    }
    return MNL_CB_OK;
}

[[noreturn]] void refuse() {
    throw std::system_error(errno, std::generic_category(), "asking the kernel for its VRFs");
}

} // namespace

std::optional<VrfDevice> readVrfDevice(const nlmsghdr& message) {
    if (message.nlmsg_type != RTM_NEWLINK ||
        mnl_nlmsg_get_payload_len(&message) < sizeof(ifinfomsg)) {
        return std::nullopt;
    }
    Found found;
    mnl_attr_parse(&message, sizeof(ifinfomsg), takeLink, &found);
    const bool isWhole = found.isVrf && found.device.table != 0 && !found.device.name.empty();
    return isWhole ? std::optional(found.device) : std::nullopt;
}

std::map<std::uint32_t, std::string> vrfNamesByTable() {
    const std::unique_ptr<mnl_socket, int (*)(mnl_socket*)> socket(
        mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), mnl_socket_close);
    struct {
        nlmsghdr header;
        ifinfomsg about;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) != 0 ||
        mnl_socket_sendto(socket.get(), &request, sizeof request) < 0) {
        refuse();
    }
    std::map<std::uint32_t, std::string> names;
    std::vector<std::uint8_t> buffer(longestMessages);
    for (int more = MNL_CB_OK; more > MNL_CB_STOP;) {
        const ssize_t size = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
        more = size < 0 ? MNL_CB_ERROR
                        : mnl_cb_run(buffer.data(), static_cast<std::size_t>(size), 0,
                                     mnl_socket_get_portid(socket.get()), takeMessage, &names);
        if (more == MNL_CB_ERROR) {
            refuse();
        }
    }
    return names;
}

} // namespace OvixFpm
