#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "Tessel/Result.h"
#include "commands/Command.h"
#include "route/TextTable.h"

namespace OvixCtl {

using Json = nlohmann::ordered_json;
using Rows = std::vector<TextTable::Cells>;

/// The socket of the agent that is asked.
std::string controlPathFor(const Request& request);

/// What the agent at a socket answers to a request that it carries out, an object without "ok".
/// `more` is what the request has beside its command: {"vrf": "red"}. Refuses, naming the path,
/// when there is no agent, for its own error, and for an answer that is none.
Tessel::Result<Json> answerTo(const std::string& command, const std::string& path,
                              const Json& more = Json::object());

/// The same of the agent of a request.
Tessel::Result<Json> answerOf(const Request& request, const std::string& command,
                              const Json& more = Json::object());
/// The same, of an answer that is a list of that name.
Tessel::Result<Json> listOf(const Request& request, const std::string& list,
                            const Json& more = Json::object());

/// Prints the answer if JSON is asked for, else the rows below a heading. Returns the exit code.
int printAnswer(const Request& request, const Json& answer, std::vector<TextTable::Column> columns,
                const Rows& rows);

/// Rows as aligned lines below a heading; empty without rows.
std::string tableText(std::vector<TextTable::Column> columns, const Rows& rows);

/// For a cell: the text of a string, an element of a list or a number; empty for null.
std::string cellOf(const Json& value);
/// With commas in between.
std::string cellOfList(const Json& list);

} // namespace OvixCtl
