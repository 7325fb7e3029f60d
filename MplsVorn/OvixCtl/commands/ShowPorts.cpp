#include <fmt/format.h>

#include "commands/AgentAnswer.h"

namespace OvixCtl {

namespace {

/// What came to each worker's queue of the port, and its share of all.
void addQueues(Rows& rows, const Json& port) {
    const auto received = [](const Json& of) { return of.at("received").get<std::uint64_t>(); };
    const Json queues = port.value("queues", Json::array());
    std::uint64_t total = 0;
    for (const Json& queue : queues) {
        total += received(queue);
    }
    std::size_t worker = 0;
    for (const Json& queue : queues) {
        const double share =
            total == 0 ? 0
                       : 100 * static_cast<double>(received(queue)) / static_cast<double>(total);
        rows.push_back({fmt::format("  worker {}", worker++), "", fmt::format("{:.0f} %", share),
                        "", "", "", "", cellOf(queue.at("received")), cellOf(queue.at("perSecond")),
                        cellOf(queue.at("drops")), "", "", ""});
    }
}

} // namespace

Tessel::Result<int> showPorts(const Request& request) {
    const Tessel::Result<Json> answer = listOf(request, "ports");
    if (!answer) {
        return answer.refused();
    }
    Rows rows;
    for (const Json& port : answer.value().at("ports")) {
        const std::string problem = cellOf(port.at("problem"));
        const std::string parent = cellOf(port.at("parent"));
        rows.push_back({cellOf(port.at("name")), cellOf(port.at("kind")),
                        cellOf(port.at("state")) + (problem.empty() ? "" : " (" + problem + ")"),
                        cellOf(port.at("mac")), cellOf(port.at("mtu")), cellOf(port.at("vrf")),
                        parent.empty() ? "" : parent + " " + cellOfList(port.at("vlans")),
                        cellOf(port.at("received")), cellOf(port.at("perSecond")),
                        port.at("ring").is_null() ? "" : cellOf(port.at("ring").at("drops")),
                        cellOf(port.at("sent").at("frames")), cellOf(port.at("sent").at("bytes")),
                        cellOfList(port.at("addresses"))});
        addQueues(rows, port);
    }
    using enum TextTable::Align;
    return printAnswer(request, answer.value(),
                       {{"Port", left},
                        {"Kind", left},
                        {"State", left},
                        {"MAC", left},
                        {"MTU", right},
                        {"VRF", left},
                        {"VLAN", left},
                        {"Received", right},
                        {"A second", right},
                        {"Missed", right},
                        {"Sent", right},
                        {"Bytes", right},
                        {"Addresses", left}},
                       rows);
}

} // namespace OvixCtl
