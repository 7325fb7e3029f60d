#include "commands/AgentAnswer.h"

namespace OvixCtl {

Tessel::Result<int> showVrfs(const Request& request) {
    const Tessel::Result<Json> answer = listOf(request, "vrfs");
    if (!answer) {
        return answer.refused();
    }
    Rows rows;
    for (const Json& vrf : answer.value().at("vrfs")) {
        rows.push_back(
            {cellOf(vrf.at("name")), cellOf(vrf.at("routes")), cellOfList(vrf.at("ports"))});
    }
    using enum TextTable::Align;
    return printAnswer(request, answer.value(), {{"VRF", left}, {"Routes", right}, {"Ports", left}},
                       rows);
}

} // namespace OvixCtl
