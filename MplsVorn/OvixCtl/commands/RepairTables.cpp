#include <fmt/format.h>

#include "Published/TablePublisher.h"
#include "Tables/TableRepair.h"
#include "commands/Command.h"
#include "route/RouteJson.h"

namespace OvixCtl {

namespace {

std::vector<std::string> repair(const Request& request) {
    Tessel::TableMemory memory = Tessel::TableMemory::sharedForRepair(
        request.tables, Tessel::TableMemory::defaultBytes, std::chrono::seconds(request.wait));
    return Tessel::TableRepair(memory, Mpls::tableDirectory).findings();
}

void print(const Request& request, std::vector<std::string> findings,
           const Tessel::TableWriter& tables) {
    if (const std::size_t removed = tables.repaired(); removed != 0) {
        findings.push_back(fmt::format("{} damaged entries are removed", removed));
    }
    if (request.json) {
        std::string texts;
        for (const std::string& finding : findings) {
            texts += (texts.empty() ? "" : ",") + jsonText(finding);
        }
        fmt::print(R"({{"tables":{},"generation":{},"findings":[{}]}})"
                   "\n",
                   jsonText(request.tables), tables.generation(), texts);
        return;
    }
    for (const std::string& finding : findings) {
        fmt::print("tables \"{}\": {}\n", request.tables, finding);
    }
    fmt::print("tables \"{}\": {}; generation {}\n", request.tables,
               findings.empty() ? "nothing was damaged" : "repaired", tables.generation());
}

} // namespace

Tessel::Result<int> repairTables(const Request& request) {
    std::vector<std::string> findings = repair(request);
    const Mpls::TablePublisher publisher(openForBatch(request));
    print(request, std::move(findings), publisher.tables());
    return ExitCode::success;
}

} // namespace OvixCtl
