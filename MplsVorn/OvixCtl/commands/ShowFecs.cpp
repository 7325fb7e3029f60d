#include "commands/AgentAnswer.h"

namespace OvixCtl {

Tessel::Result<int> showFecs(const Request& request) {
    const Tessel::Result<Json> answer = listOf(request, "fecs");
    if (!answer) {
        return answer.refused();
    }
    Rows rows;
    for (const Json& fec : answer.value().at("fecs")) {
        for (const Json& hop : fec.at("nexthops")) {
            rows.push_back({cellOf(fec.at("id")), cellOf(hop.at("nexthop")), cellOf(hop.at("port")),
                            cellOf(hop.at("weight"))});
        }
    }
    using enum TextTable::Align;
    return printAnswer(request, answer.value(),
                       {{"FEC", right}, {"Next hop", left}, {"Port", left}, {"Weight", right}},
                       rows);
}

} // namespace OvixCtl
