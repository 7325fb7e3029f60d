#include <fmt/format.h>

#include "commands/AgentAnswer.h"

namespace OvixCtl {

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
                        cellOf(port.at("received")), cellOf(port.at("sent").at("frames")),
                        cellOf(port.at("sent").at("bytes")), cellOfList(port.at("addresses"))});
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
                        {"Sent", right},
                        {"Bytes", right},
                        {"Addresses", left}},
                       rows);
}

} // namespace OvixCtl
