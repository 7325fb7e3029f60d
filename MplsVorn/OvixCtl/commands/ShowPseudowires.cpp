#include <fmt/format.h>

#include "commands/AgentAnswer.h"

namespace OvixCtl {

namespace {

/// "PORT NEXTHOP LABEL/LABEL", with commas between the ways.
std::string tunnelText(const Json& ways) {
    std::string text;
    for (const Json& way : ways) {
        std::string labels;
        for (const Json& label : way.at("labels")) {
            labels += (labels.empty() ? " " : "/") + cellOf(label);
        }
        text += fmt::format("{}{} {}{}", text.empty() ? "" : ", ", cellOf(way.at("port")),
                            cellOf(way.at("nexthop")), labels);
    }
    return text;
}

std::string stateText(const Json& pseudowire) {
    const std::string why = cellOf(pseudowire.at("why"));
    return cellOf(pseudowire.at("state")) + (why.empty() ? "" : ": " + why);
}

} // namespace

Tessel::Result<int> showPseudowires(const Request& request) {
    const Tessel::Result<Json> answer = listOf(request, "pseudowires");
    if (!answer) {
        return answer.refused();
    }
    Rows rows;
    for (const Json& pseudowire : answer.value().at("pseudowires")) {
        rows.push_back(
            {cellOf(pseudowire.at("name")), cellOf(pseudowire.at("circuit")), stateText(pseudowire),
             cellOf(pseudowire.at("localLabel")), cellOf(pseudowire.at("remoteLabel")),
             pseudowire.at("controlWord").get<bool>() ? "yes" : "no",
             cellOf(pseudowire.at("sent").at("frames")),
             cellOf(pseudowire.at("delivered").at("frames")), tunnelText(pseudowire.at("tunnel"))});
    }
    using enum TextTable::Align;
    return printAnswer(request, answer.value(),
                       {{"Pseudowire", left},
                        {"Circuit", left},
                        {"State", left},
                        {"Label", right},
                        {"Remote", right},
                        {"Control word", left},
                        {"Sent", right},
                        {"Delivered", right},
                        {"Tunnel", left}},
                       rows);
}

} // namespace OvixCtl
