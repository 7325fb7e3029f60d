#include <linux/rtnetlink.h>
#include <set>

#include "Input.h"
#include "Live/links/LinkTable.h"
#include "kernel/KernelLinks.h"

namespace {

using namespace OvixAgent;

/// What listens to a table of links: a link is told of before it is told to be gone.
class Listener {
  public:
    LinkEvents events() {
        LinkEvents events;
        events.linkIs = [this](const LinkState& link) { links_.insert(link.index); };
        events.linkDel = [this](const LinkState& link) {
            Fuzz::check(links_.erase(link.index) == 1, "a link goes that has not come");
        };
        events.neighbourIs = [this](const NeighbourState& is) { neighbours_.insert(nameOf(is)); };
        events.neighbourDel = [this](const NeighbourState& is) {
            Fuzz::check(neighbours_.erase(nameOf(is)) == 1, "a neighbour goes that has not come");
        };
        return events;
    }
    bool isEmpty() const { return links_.empty() && neighbours_.empty(); }

  private:
    static std::string nameOf(const NeighbourState& neighbour) {
        return std::to_string(neighbour.link) + ' ' + neighbour.address.text();
    }

    std::set<std::uint32_t> links_;
    std::set<std::string> neighbours_;
};

void take(LinkTable& table, const nlmsghdr& message) {
    if (const auto link = readLinkMessage(message)) {
        Fuzz::check(link->index != 0, "a link without an index");
        message.nlmsg_type == RTM_DELLINK ? table.linkDel(link->index) : table.linkIs(*link);
    }
    if (const auto neighbour = readNeighbourMessage(message)) {
        message.nlmsg_type == RTM_DELNEIGH ? table.neighbourDel(*neighbour)
                                           : table.neighbourIs(*neighbour);
    }
    if (const auto link = OvixFpm::readLink(message)) {
        Fuzz::check(!link->name.empty(), "an interface without a name");
    }
}

} // namespace

/// A datagram of rtnetlink messages, each read as a link, as a neighbour and as the listener's
/// interface.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Fuzz::ExactCopy copy({data, size});
    Listener listener;
    LinkTable table(listener.events());
    visitMessages(copy.bytes(), [&](const nlmsghdr& message) {
        take(table, message);
        if (message.nlmsg_type == NLMSG_DONE) {
            table.startConfirming();
        }
    });
    table.startConfirming();
    table.delUnconfirmed();
    Fuzz::check(listener.isEmpty(), "what is not confirmed has stayed");
    return 0;
}
