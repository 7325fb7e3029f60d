#include <CLI/CLI.hpp>
#include <algorithm>
#include <cassert>
#include <fmt/format.h>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "Config/ConfigText.h"
#include "Program/Version.h"
#include "Tables/TableMemory.h"
#include "commands/Command.h"

namespace OvixCtl {

namespace {

constexpr const char* mainHelp =
    "--tables, --control, --create and --json may stand before or after the command.\n"
    "Exit codes:\n"
    "  0  done\n"
    "  1  an error, or some of what was shown is damaged\n"
    "  2  the command line is wrong\n"
    "(lfib diff: 0 no difference, 1 a difference, 2 an error)\n"
    "With --json an error is JSON, too: {\"error\": TEXT} on standard error.";

/// Writes the words of a command in its usage as its help describes them: "[TABLE] [LABEL]".
class Usage : public CLI::Formatter {
  public:
    std::string make_option_usage(const CLI::Option* words) const override {
        const std::string type = words->get_type_name();
        const std::string name = make_option_name(words, true);
        return type.find(' ') != std::string::npos ? type
               : words->get_required()             ? name
                                                   : "[" + name + "]";
    }
};

void addOption(CLI::App& app, const Option& option, Request& request) {
    CLI::Option* const added = std::visit(
        [&](auto member) {
            using Member = std::remove_reference_t<decltype(request.*member)>;
            if constexpr (std::is_same_v<Member, bool>) {
                return app.add_flag(option.name, request.*member, option.help);
            } else if constexpr (std::is_same_v<Member, std::uint64_t>) {
                return app.add_option(option.name, request.*member, option.help)
                    ->check([](const std::string& text) {
                        return std::string(text.starts_with('-') ? "a negative number" : "");
                    })
                    ->check(CLI::Range(option.least, option.most, "N"));
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

/// A command without a name is its group.
void addCommand(CLI::App& group, const Command& command, Request& request) {
    assert(command.run != nullptr);
    CLI::App* const added =
        *command.name != '\0' ? group.add_subcommand(command.name, command.summary) : &group;
    added->fallthrough();
    added->footer(expanded(command.help));
    added->callback([&request, &command] { request.command = &command; });
    if (const CommandWords& words = command.words; words.name != nullptr) {
        added->add_option(words.name, request.words, words.help)
            ->type_name(words.type)
            ->required(words.least > 0)
            ->expected(words.least, words.most);
    }
    for (const Option& option : command.options) {
        addOption(*added, option, request);
    }
}

void addGroup(CLI::App& app, const CommandGroup& group, Request& request) {
    CLI::App* const added = app.add_subcommand(group.name, group.summary);
    added->fallthrough();
    for (const Command& command : allCommands()) {
        if (std::string_view(command.group) == group.name) {
            addCommand(*added, command, request);
            added->require_subcommand(*command.name != '\0' ? 1 : 0);
        }
    }
}

/// The first words that are no options, nor their values: a group and a command.
std::vector<std::string> commandWords(std::span<const char* const> arguments) {
    std::vector<std::string> words;
    for (std::size_t i = 1; i < arguments.size() && words.size() < 2; ++i) {
        const std::string_view argument = arguments[i];
        const auto options = globalOptions();
        const bool hasValue = std::any_of(options.begin(), options.end(), [&](const Option& known) {
            return known.value != nullptr && argument == known.name;
        });
        if (hasValue) {
            ++i;
        } else if (!argument.starts_with('-')) {
            words.emplace_back(argument);
        }
    }
    return words;
}

/// The names of the groups, or of the commands of one; none for a group that there is not.
std::vector<std::string_view> namesIn(const std::string* group) {
    std::vector<std::string_view> names;
    if (group == nullptr) {
        for (const CommandGroup& known : commandGroups()) {
            names.emplace_back(known.name);
        }
        return names;
    }
    for (const Command& known : allCommands()) {
        if (*group == known.group && *known.name != '\0') {
            names.emplace_back(known.name);
        }
    }
    return names;
}

/// Names the first word that should be a command and is none; "" when there is no such word.
std::string unknownCommand(std::span<const char* const> arguments) {
    const std::string* group = nullptr;
    const std::vector<std::string> words = commandWords(arguments);
    for (const std::string& word : words) {
        const auto known = namesIn(group);
        if (!known.empty() && std::find(known.begin(), known.end(), word) == known.end()) {
            return fmt::format("unknown command {}{}", OvixAgent::inQuotes(word),
                               OvixAgent::suggestion(word, known));
        }
        group = &word;
    }
    return {};
}

/// Names the first long option that no command has; "" when there is none.
std::string unknownOption(std::span<const char* const> arguments) {
    std::vector<std::string_view> known{"--help", "--version"};
    const auto add = [&](const auto& options) {
        for (const Option& option : options) {
            known.emplace_back(option.name);
        }
    };
    add(globalOptions());
    for (const Command& command : allCommands()) {
        add(command.options);
    }
    for (const std::string_view argument : arguments.subspan(1)) {
        const std::string name(argument.substr(0, argument.find('=')));
        if (name == "--") {
            break;
        }
        if (name.starts_with("--") && std::find(known.begin(), known.end(), name) == known.end()) {
            return fmt::format("unknown option {}{}", OvixAgent::inQuotes(name),
                               OvixAgent::suggestion(name, known));
        }
    }
    return {};
}

EarlyExit usageExit(std::span<const char* const> arguments, const std::string& what) {
    const bool json = std::any_of(arguments.begin(), arguments.end(), [](const char* argument) {
        return std::string_view(argument) == "--json";
    });
    return {ExitCode::usage, errorText(json, what)};
}

EarlyExit exitFor(const CLI::App& app, const CLI::ParseError& error,
                  std::span<const char* const> arguments) {
    std::ostringstream out;
    std::ostringstream err;
    if (app.exit(error, out, err) == 0) {
        return {ExitCode::success, out.str()};
    }
    std::string unknown = unknownOption(arguments);
    if (unknown.empty()) {
        unknown = unknownCommand(arguments);
    }
    const std::string text = err.str();
    return usageExit(arguments,
                     !unknown.empty() ? unknown : text.substr(0, text.find_last_not_of('\n') + 1));
}

} // namespace

std::variant<Request, EarlyExit> parseCommandLine(int argc, const char* const* argv) {
    const std::span arguments(argv, static_cast<std::size_t>(argc));
    Request request;
    CLI::App app("Shows and changes label tables in shared memory.", "ovixctl");
    app.set_version_flag("--version", OvixLog::versionText("ovixctl"));
    app.require_subcommand(1);
    app.formatter(std::make_shared<Usage>());
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
        return exitFor(app, error, arguments);
    } catch (const std::invalid_argument& name) {
        return usageExit(arguments, name.what());
    }
    assert(request.command != nullptr);
    return request;
}

} // namespace OvixCtl
