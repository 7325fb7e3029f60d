#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "Tables/TableMemory.h"
#include "Tessel/Result.h"
#include "tables/TableDiff.h"

namespace OvixCtl {

/// What the program exits with.
namespace ExitCode {
inline constexpr int success = 0;
inline constexpr int failure = 1; ///< of `lfib diff`: there is a difference
inline constexpr int usage = 2;   ///< of `lfib diff`: also every other error
} // namespace ExitCode

struct Command;

/// What a command line asks for.
struct Request {
    const Command* command = nullptr;
    std::string tables = "ovix"; ///< the name of the shared tables
    std::string control;         ///< the agent's socket; empty: derived from the tables' name
    bool json = false;
    bool quiet = false;
    bool create = false;                     ///< make the tables when there are none
    std::uint64_t count = ~std::uint64_t{0}; ///< of watch: stop after that many changes
    std::uint64_t wait = 5;                  ///< seconds for which other writers are waited for
    std::string frames;                      ///< of bundle: a capture
    bool anonymise = false;                  ///< of bundle
    bool showsFrames = false;                ///< of drops: the frames themselves
    bool follow = false;                     ///< and those that come
    std::string pcapng;                      ///< the file that they are written to; empty: none
    std::string by;                          ///< what they are counted by; empty: reasons alone
    std::string port;                        ///< where frames come in; empty: anywhere
    std::string reason;                      ///< only those with this text in their reason
    std::uint64_t label = ~std::uint64_t{0}; ///< of trace: that frames have; no label: any
    std::string prefix;                      ///< of trace: that they are for; empty: any
    std::uint64_t limit = 100;               ///< of trace: stop after so many frames
    std::uint64_t seconds = 60;              ///< and after that time
    std::string html;                        ///< of explain: the file for a page
    std::vector<std::string> words;          ///< as many as the command takes
};

/// An option, and the member of the request that it sets.
struct Option {
    const char* name;
    const char* value; ///< what help calls its value; null for a flag
    const char* help;
    const char* completion; ///< words to offer for the value; null for none
    std::variant<std::string Request::*, bool Request::*, std::uint64_t Request::*> member;
    const char* environment = ""; ///< the variable that sets it, too
    std::uint64_t least = 1;      ///< of a number
    std::uint64_t most = std::numeric_limits<std::int64_t>::max();
};

/// The words of a command: what help calls them, and how many there may be.
struct CommandWords {
    const char* name = nullptr;
    const char* type = "";
    const char* help = "";
    int least = 0;
    int most = 0; ///< negative: no limit
};

/// All that the program knows of a command. `help` and `completion` are subject to expanded().
struct Command {
    const char* group;
    const char* name;
    const char* summary;
    /// Carries it out. Returns the exit code, or why it could not be done; may also throw that.
    Tessel::Result<int> (*run)(const Request& request);
    CommandWords words{};
    const char* help = ""; ///< below the options
    /// A line for each place where words are offered: a bash pattern for COUNT:LAST, the number of
    /// words given so far and the last of them, and the words.
    const char* completion = "";
    std::span<const Option> options = {}; ///< its own, beside the global ones
    int failureCode = ExitCode::failure;
};

struct CommandGroup {
    const char* name;
    const char* summary;
};

std::span<const CommandGroup> commandGroups() noexcept;
/// Sorted by group and name.
std::span<const Command> allCommands() noexcept;
std::span<const Option> globalOptions() noexcept;

/// The text with "@lfibs@", "@tables@" and so on replaced by what the program's tables hold.
std::string expanded(std::string text);

/// Nothing to carry out: help or version was asked for, or the command line is wrong.
struct EarlyExit {
    int code = ExitCode::success;
    std::string text; ///< for standard output on success, else for standard error
};

/// Options and commands are those of the table of commands.
std::variant<Request, EarlyExit> parseCommandLine(int argc, const char* const* argv);

/// Refuses tables that do not exist, unless the request makes them.
Tessel::Result<void> requireTables(const Request& request);
/// The tables, locked for one batch of changes. Throws Tessel::TablesBusy when another writer has
/// them for longer than `wait`, and what opening them throws.
Tessel::TableMemory openForBatch(const Request& request);

// What commands print.

/// An error as one line: after the program's name, or as JSON {"error"}.
std::string errorText(bool json, const std::string& what);
/// Prints an error on standard error.
void complain(const Request& request, const std::string& what);
/// The same of what is worth knowing of something that was done; as JSON {"notice"}.
void note(const Request& request, const std::string& what);
/// The words of the command are wrong: complains, and returns the exit code for that.
int usageError(const Request& request, const Tessel::Refused& refused);
/// UTC with milliseconds, as in ISO 8601; from nanoseconds since 1970.
std::string timeText(std::uint64_t nanoseconds);
/// Prints what a change of the tables came to; as JSON {"tables", "generation", "added", "changed",
/// "removed"}.
void printCounts(const Request& request, std::uint64_t generation, const ChangeCounts& counts);

} // namespace OvixCtl
