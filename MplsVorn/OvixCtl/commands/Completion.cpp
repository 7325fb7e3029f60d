#include <fmt/format.h>
#include <span>

#include "commands/Commands.h"
#include "commands/CompletionScript.h"
#include "route/EntryTable.h"

namespace OvixCtl {

namespace {

void replaceAll(std::string& text, std::string_view mark, const std::string& with) {
    for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += with.size()) {
        text.replace(at, mark.size(), with);
    }
}

} // namespace

int printBashCompletion() {
    std::string text = completionScript;
    const auto lfibNames = std::span(entryTableNames).first(Mpls::lfibs);
    replaceAll(text, "@lfibs@", fmt::format("{}", fmt::join(lfibNames, " ")));
    replaceAll(text, "@shown@", fmt::format("{}", fmt::join(shownTableNames, " ")));
    fmt::print("{}", text);
    return ExitCode::success;
}

} // namespace OvixCtl
