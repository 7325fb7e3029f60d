#include "commands/AgentAnswer.h"

#include <cstdio>
#include <fmt/format.h>
#include <utility>

#include "Control/ControlClient.h"
#include "Control/ControlServer.h"
#include "Summary/JsonText.h"
#include "commands/Counters.h"

namespace OvixCtl {

using OvixAgent::dumped;

std::string controlPathFor(const Request& request) {
    return request.control.empty() ? OvixAgent::controlPathToAsk(request.tables) : request.control;
}

namespace {

std::string requestText(const std::string& command, const Json& more) {
    Json request{{"command", command}};
    request.update(more);
    return dumped(request);
}

} // namespace

Tessel::Result<Json> answerTo(const std::string& command, const std::string& path,
                              const Json& more) {
    const Tessel::Result<std::string> line = OvixAgent::askAgent(path, requestText(command, more));
    if (!line) {
        return line.refused();
    }
    Json answer = Json::parse(line.value(), nullptr, false);
    if (!answer.is_object() || !answer.contains("ok") || !answer["ok"].is_boolean()) {
        return Tessel::Refused{
            fmt::format("control socket {}: the answer is not an agent's", path)};
    }
    if (!answer["ok"].get<bool>()) {
        const auto error = answer.find("error");
        return Tessel::Refused{fmt::format("control socket {}: {}", path,
                                           error != answer.end() && error->is_string()
                                               ? error->get<std::string>()
                                               : "the agent refuses")};
    }
    answer.erase("ok");
    return answer;
}

Tessel::Result<Json> answerOf(const Request& request, const std::string& command,
                              const Json& more) {
    const std::string path = controlPathFor(request);
    if (request.control.empty()) { // a path that others may have foreseen
        if (const auto trusted = OvixAgent::checkControlDirectory(path); !trusted) {
            return trusted.refused();
        }
    }
    return answerTo(command, path, more);
}

Tessel::Result<Json> listOf(const Request& request, const std::string& list, const Json& more) {
    Tessel::Result<Json> answer = answerOf(request, list, more);
    if (answer && !(answer.value().contains(list) && answer.value()[list].is_array())) {
        return Tessel::Refused{fmt::format("control socket {}: the agent's answer has no {}",
                                           controlPathFor(request), list)};
    }
    return answer;
}

int printAnswer(const Request& request, const Json& answer, std::vector<TextTable::Column> columns,
                const Rows& rows) {
    const std::string text =
        request.json ? dumped(answer) + "\n" : tableText(std::move(columns), rows);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return ExitCode::success;
}

std::string tableText(std::vector<TextTable::Column> columns, const Rows& rows) {
    if (rows.empty()) {
        return {};
    }
    TextTable table(std::move(columns));
    for (const TextTable::Cells& row : rows) {
        table.measure(row);
    }
    std::string text = table.heading();
    for (const TextTable::Cells& row : rows) {
        text += table.line(row);
    }
    return text;
}

std::string cellOf(const Json& value) {
    return value.is_null()     ? std::string()
           : value.is_string() ? value.get<std::string>()
                               : value.dump();
}

std::string cellOfList(const Json& list) {
    std::string text;
    for (const Json& each : list) {
        text += (text.empty() ? "" : ",") + cellOf(each);
    }
    return text;
}

} // namespace OvixCtl
