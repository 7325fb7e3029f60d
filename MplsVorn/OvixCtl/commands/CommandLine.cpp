#include "commands/CommandLine.h"

#include <CLI/CLI.hpp>
#include <cassert>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "Command/CliOptions.h"
#include "Tables/TableMemory.h"

namespace OvixCtl {

namespace {

constexpr const char* mainHelp =
    "--tables, --control and --json may stand before or after the command.\n"
    "Exit codes:\n"
    "  0  done\n"
    "  1  an error, or some of what was shown is damaged\n"
    "  2  the command line is wrong\n"
    "(lfib diff: 0 no difference, 1 a difference, 2 an error)";

void addOption(CLI::App& app, const Option& option, Request& request) {
    CLI::Option* const added = std::visit(
        [&](auto member) {
            using Member = std::remove_reference_t<decltype(request.*member)>;
            if constexpr (std::is_same_v<Member, bool>) {
                return app.add_flag(option.name, request.*member, option.help);
            } else {
                return app.add_option(option.name, request.*member, option.help);
            }
        },
        option.member);
    if (option.value != nullptr) {
        added->type_name(option.value);
    }
    if (*option.environment != '\0') {
        added->envname(option.environment)->capture_default_str();
    }
}

void addCommand(CLI::App& group, const Command& command, Request& request) {
    assert(command.run != nullptr);
    CLI::App* const added = group.add_subcommand(command.name, command.summary);
    added->fallthrough();
    added->footer(expanded(command.help));
    added->callback([&request, &command] { request.command = &command; });
    if (const CommandWords& words = command.words; words.name != nullptr) {
        added->add_option(words.name, request.words, words.help)
            ->type_name(words.type)
            ->required(words.least > 0)
            ->expected(words.least, words.most);
    }
    if (command.option != nullptr) {
        addOption(*added, *command.option, request);
    }
}

void addGroup(CLI::App& app, const CommandGroup& group, Request& request) {
    CLI::App* const added = app.add_subcommand(group.name, group.summary);
    added->require_subcommand(1);
    added->fallthrough();
    for (const Command& command : allCommands()) {
        if (std::string_view(command.group) == group.name) {
            addCommand(*added, command, request);
        }
    }
}

EarlyExit exitFor(const CLI::App& app, const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream err;
    const bool isSuccess = app.exit(error, out, err) == 0;
    return {isSuccess ? ExitCode::success : ExitCode::usage,
            isSuccess ? out.str() : "ovixctl: " + err.str()};
}

} // namespace

std::variant<Request, EarlyExit> parseCommandLine(int argc, const char* const* argv) {
    Request request;
    CLI::App app("Shows and changes label tables in shared memory.", "ovixctl");
    app.set_version_flag("--version", std::string("ovixctl ") + OvixAgent::agentVersion);
    app.require_subcommand(1);
    app.footer(mainHelp);
    for (const Option& option : globalOptions()) {
        addOption(app, option, request);
    }
    for (const CommandGroup& group : commandGroups()) {
        addGroup(app, group, request);
    }
    try {
        app.parse(argc, argv);
        Tessel::TableMemory::checkName(request.tables);
    } catch (const CLI::ParseError& error) {
        return exitFor(app, error);
    } catch (const std::invalid_argument& name) {
        return EarlyExit{ExitCode::usage, std::string("ovixctl: ") + name.what() + "\n"};
    }
    assert(request.command != nullptr);
    return request;
}

} // namespace OvixCtl
