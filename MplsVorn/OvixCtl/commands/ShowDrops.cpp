#include <fmt/format.h>

#include "Ovix/trace/NamedCounters.h"
#include "commands/AgentAnswer.h"

namespace OvixCtl {

namespace {

/// The fate of all, and below it its reasons, as in the balance of a run.
void addFate(Rows& rows, const char* name, const Json& fate) {
    rows.push_back({name, cellOf(fate.is_object() ? fate.at("frames") : fate)});
    if (fate.is_object()) {
        for (const auto& [reason, frames] : fate.at("reasons").items()) {
            rows.push_back({"  " + Ovix::readableEvent({}, reason).reason, cellOf(frames)});
        }
    }
}

} // namespace

Tessel::Result<int> showDrops(const Request& request) {
    const Tessel::Result<Json> answer = answerOf(request, "fates");
    if (!answer) {
        return answer.refused();
    }
    Rows rows;
    const Json& fates = answer.value();
    for (const auto& [key, name] :
         {std::pair("in", "in"), std::pair("replicas", "replicas"),
          std::pair("forwarded", "forwarded"), std::pair("punted", "punted"),
          std::pair("dropped", "dropped"), std::pair("handedOn", "handed on"),
          std::pair("queued", "queued")}) {
        addFate(rows, name, fates.at(key));
    }
    using enum TextTable::Align;
    return printAnswer(request, fates, {{"fate", left}, {"frames", right}}, rows);
}

} // namespace OvixCtl
