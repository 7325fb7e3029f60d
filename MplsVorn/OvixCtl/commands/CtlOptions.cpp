#include "commands/CtlOptions.h"

#include <CLI/CLI.hpp>
#include <sstream>
#include <stdexcept>

#include "Command/CliOptions.h"
#include "Tables/TableMemory.h"
#include "commands/CtlHelp.h"

namespace OvixCtl {

namespace {

/// The subcommands of `parent`, each of which sets the command to carry out.
class Commands {
  public:
    Commands(CLI::App& parent, CtlOptions& options) : parent_(&parent), options_(&options) {
        parent.require_subcommand(1);
        parent.fallthrough();
    }

    CLI::App* add(const char* name, const char* what, Command command,
                  const char* footer = "") const {
        CLI::App* const made = parent_->add_subcommand(name, what);
        made->fallthrough();
        made->footer(footer);
        CtlOptions* const options = options_;
        made->callback([options, command] { options->command = command; });
        return made;
    }

  private:
    CLI::App* parent_;
    CtlOptions* options_;
};

void addGlobalOptions(CLI::App& app, CtlOptions& options) {
    options.tables = "ovix";
    app.add_option("--tables", options.tables, "The name of the tables in shared memory")
        ->type_name("NAME")
        ->envname("OVIX_TABLES")
        ->capture_default_str();
    app.add_option("--control", options.control,
                   "The agent's control socket (default: where an agent that takes these tables "
                   "answers)")
        ->type_name("PATH");
    app.add_flag("--json", options.json, "Print JSON");
}

void addLfibCommands(CLI::App& app, CtlOptions& options) {
    CLI::App* const lfib = app.add_subcommand("lfib", "The label tables");
    const Commands commands(*lfib, options);
    CLI::App* const load =
        commands.add("load", "Make the tables exactly what a configuration says, all at once",
                     Command::lfibLoad, loadHelp);
    CLI::App* const diff =
        commands.add("diff", "What load would change", Command::lfibDiff, diffHelp);
    for (CLI::App* const command : {load, diff}) {
        command->add_option("FILE", options.file, "The agent's configuration; - is standard input")
            ->required();
    }
    CLI::App* const show = commands.add("show", "The routes", Command::lfibShow, showHelp);
    show->add_option("WORDS", options.words, "A table, a label, or both")
        ->type_name("[TABLE] [LABEL]")
        ->expected(0, 2);
    CLI::App* const add = commands.add("add", "A new route", Command::lfibAdd, routeHelp);
    CLI::App* const replace = commands.add("replace", "A route, new or in another's place",
                                           Command::lfibReplace, routeHelp);
    CLI::App* const del = commands.add("del", "Takes a route away", Command::lfibDel);
    for (CLI::App* const command : {add, replace, del}) {
        command->add_option("ROUTE", options.words)
            ->type_name(command == del ? "LABEL [table TABLE]" : "LABEL [table TABLE] ...")
            ->required();
    }
    commands.add("watch", "Changes as they become visible", Command::lfibWatch, watchHelp)
        ->add_option("--count", options.count, "Stop after so many changes")
        ->type_name("N");
}

void addCounterCommands(CLI::App& app, CtlOptions& options) {
    CLI::App* const counters = app.add_subcommand("counters", "The counters of a running agent");
    const Commands commands(*counters, options);
    commands
        .add("show", "Packets and bytes by label, and what else is counted", Command::countersShow,
             countersHelp)
        ->add_option("LABEL", options.words, "One label alone")
        ->type_name("")
        ->expected(0, 1);
    commands.add("clear", "Sets them to 0", Command::countersClear);
}

void addCompletionCommands(CLI::App& app, CtlOptions& options) {
    CLI::App* const completion = app.add_subcommand("completion", "Shell completion");
    Commands(*completion, options)
        .add("bash", "A script to be sourced by bash", Command::completion, completionHelp);
}

CtlExit exitFor(const CLI::App& app, const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream err;
    const bool isSuccess = app.exit(error, out, err) == 0;
    return {isSuccess ? ExitCode::success : ExitCode::usage,
            isSuccess ? out.str() : "ovixctl: " + err.str()};
}

} // namespace

std::variant<CtlOptions, CtlExit> parseCommandLine(int argc, const char* const* argv) {
    CtlOptions options;
    CLI::App app("Label tables in shared memory: what they hold, and changes to them.", "ovixctl");
    app.set_version_flag("--version", std::string("ovixctl ") + OvixAgent::agentVersion);
    app.require_subcommand(1);
    app.footer(mainHelp);
    addGlobalOptions(app, options);
    addLfibCommands(app, options);
    addCounterCommands(app, options);
    addCompletionCommands(app, options);
    try {
        app.parse(argc, argv);
        Tessel::TableMemory::checkName(options.tables);
    } catch (const CLI::ParseError& error) {
        return exitFor(app, error);
    } catch (const std::invalid_argument& name) {
        return CtlExit{ExitCode::usage, std::string("ovixctl: ") + name.what() + "\n"};
    }
    return options;
}

} // namespace OvixCtl
