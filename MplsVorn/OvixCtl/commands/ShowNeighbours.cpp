#include <algorithm>
#include <tuple>
#include <utility>

#include "Lumo/IpGenAddr.h"
#include "commands/AgentAnswer.h"

namespace OvixCtl {

namespace {

struct Neighbour {
    std::string port;
    Lumo::IpGenAddr address;
    Json entry;

    auto place() const { return std::tuple(port, address.family(), address.bytes()); }
};

/// By port and address. One that has come twice is there once, as it was last.
Json neighboursInOrder(Json list) {
    std::vector<Neighbour> all;
    for (Json& entry : list) {
        all.push_back({entry.at("port").get<std::string>(),
                       Lumo::IpGenAddr::fromText(entry.at("address").get<std::string>()),
                       std::move(entry)});
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const auto& a, const auto& b) { return a.place() < b.place(); });
    Json ordered = Json::array();
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (i + 1 == all.size() || all[i + 1].place() != all[i].place()) {
            ordered.push_back(std::move(all[i].entry));
        }
    }
    return ordered;
}

} // namespace

Tessel::Result<int> showNeighbours(const Request& request) {
    Tessel::Result<Json> answer = listOf(request, "neighbours");
    if (!answer) {
        return answer.refused();
    }
    Json& list = answer.value()["neighbours"];
    list = neighboursInOrder(std::move(list));
    Rows rows;
    for (const Json& neighbour : list) {
        rows.push_back({cellOf(neighbour.at("address")), cellOf(neighbour.at("port")),
                        cellOf(neighbour.at("mac")),
                        neighbour.at("configured") == true ? "configured" : "learned"});
    }
    using enum TextTable::Align;
    return printAnswer(request, answer.value(),
                       {{"Address", left}, {"Port", left}, {"MAC", left}, {"From", left}}, rows);
}

} // namespace OvixCtl
