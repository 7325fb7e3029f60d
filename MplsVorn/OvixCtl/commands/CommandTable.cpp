#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "commands/Command.h"
#include "route/RouteGrammar.h"
#include "route/ViaWords.h"
#include "tables/TableView.h"

namespace OvixCtl {

// A command is a row of `commands`, and a file with its function.
Tessel::Result<int> addRoute(const Request& request);
Tessel::Result<int> clearCounters(const Request& request);
Tessel::Result<int> deleteRoute(const Request& request);
Tessel::Result<int> diffRoutes(const Request& request);
Tessel::Result<int> explainFrameOfAgent(const Request& request);
Tessel::Result<int> tellWhatIf(const Request& request);
Tessel::Result<int> writeBundleOfAgent(const Request& request);
Tessel::Result<int> loadRoutes(const Request& request);
Tessel::Result<int> printBashCompletion(const Request& request);
Tessel::Result<int> printZshCompletion(const Request& request);
Tessel::Result<int> repairTables(const Request& request);
Tessel::Result<int> replaceRoute(const Request& request);
Tessel::Result<int> showCounters(const Request& request);
Tessel::Result<int> showDrops(const Request& request);
Tessel::Result<int> showFecs(const Request& request);
Tessel::Result<int> showIpRoutes(const Request& request);
Tessel::Result<int> showNeighbours(const Request& request);
Tessel::Result<int> showPorts(const Request& request);
Tessel::Result<int> showPseudowires(const Request& request);
Tessel::Result<int> showRoutes(const Request& request);
Tessel::Result<int> showStatus(const Request& request);
Tessel::Result<int> showVrfs(const Request& request);
Tessel::Result<int> startTrace(const Request& request);
Tessel::Result<int> stopTrace(const Request& request);
Tessel::Result<int> watchRoutes(const Request& request);

namespace {

constexpr CommandGroup groups[]{
    {"lfib", "The label tables"},
    {"counters", "The counters of a running agent"},
    {"status", "What a running agent is doing, in short"},
    {"drops", "What has become of a running agent's frames"},
    {"explain", "Why a frame would go where it goes, or nowhere, in a running agent"},
    {"what-if", "What a change would move"},
    {"bundle", "All that a running agent forwards by, in one file"},
    {"trace", "What happens to some of a running agent's frames"},
    {"port", "The ports of a running agent"},
    {"neighbour", "The neighbours of a running agent"},
    {"route", "The IP routes of a running agent"},
    {"pseudowire", "The pseudowires of a running agent"},
    {"fec", "The FECs of a running agent"},
    {"vrf", "The VRFs of a running agent"},
    {"tables", "The shared memory of the tables"},
    {"completion", "Shell completion"},
};

constexpr Option globals[]{
    {"--tables", "NAME", "The name of the tables in shared memory", "@present-tables@",
     &Request::tables, "OVIX_TABLES"},
    {"--control", "PATH",
     "The agent's control socket (default: the socket of the agent that uses these tables)",
     "@files@", &Request::control},
    {"--create", nullptr, "Make the tables when there are none of that name", nullptr,
     &Request::create},
    {"--json", nullptr, "Print JSON", nullptr, &Request::json},
};
constexpr Option countOptions[]{{"--count", "N", "Stop after N changes", nullptr, &Request::count}};

constexpr Option waitOptions[]{{"--wait", "SECONDS",
                                "How long to wait for other writers of the tables (default: 5)",
                                nullptr, &Request::wait, "", 0, 86400}};

constexpr Option quietOptions[]{{"--quiet", nullptr,
                                 "Print nothing unless something is wrong, for health checks",
                                 nullptr, &Request::quiet}};
constexpr Option explainOptions[]{
    {"--port", "PORT",
     "The port that the frame comes in at; of CAPTURE:NUMBER, by default the capture's interface",
     "@interfaces@", &Request::port},
    {"--html", "FILE", "Write a page that shows the walk, too", "@files@", &Request::html},
};

constexpr Option bundleOptions[]{
    {"--frames", "CAPTURE", "Frames to put into it, beside those that the agent has recorded",
     "@files@", &Request::frames},
    {"--port", "PORT",
     "The port that the frames of the capture come in at; by default the capture's interfaces",
     "@interfaces@", &Request::port},
    {"--anonymise", nullptr, "Replace IP addresses, the same ones alike, and keep their prefixes",
     nullptr, &Request::anonymise},
};

constexpr Option traceOptions[]{
    {"--port", "PORT", "Only frames that come in at this port", "@interfaces@", &Request::port},
    {"--label", "LABEL", "Only frames with this label in their stack", nullptr, &Request::label, "",
     0, 1048575},
    {"--prefix", "PREFIX", "Only IP packets, labelled or not, for this prefix", nullptr,
     &Request::prefix},
    {"--reason", "TEXT", "Only frames that go nowhere for a reason with this in it", nullptr,
     &Request::reason},
    {"--limit", "N", "Stop after so many frames: 1 to 10000 (default: 100)", nullptr,
     &Request::limit, "", 1, 10000},
    {"--seconds", "S", "Stop after that time: 1 to 3600 (default: 60)", nullptr, &Request::seconds,
     "", 1, 3600},
};

constexpr Option dropsOptions[]{
    {"--by", "port|label|neighbour", "Count them by port, by outermost label, or by neighbour",
     "port label neighbour", &Request::by},
    {"--frames", nullptr, "Show frames: the first and the last 64 of each reason", nullptr,
     &Request::showsFrames},
    {"--follow", nullptr, "Go on with the frames that come, until interrupted", nullptr,
     &Request::follow},
    {"--pcapng", "FILE", "Write frames to a capture, each with a comment; - is standard output",
     "@files@", &Request::pcapng},
    {"--port", "PORT", "Only frames that came in at this port", "@interfaces@", &Request::port},
    {"--reason", "TEXT", "Only frames with this in their reason", nullptr, &Request::reason},
};

constexpr CommandWords configWord{
    "FILE", "TEXT",
    "A configuration of the agent, or a ROUTE of lfib add on each line; - is standard input", 1, 1};
constexpr CommandWords routeWord{"ROUTE", "[TABLE] LABEL ...", "", 1, -1};

constexpr const char* routeHelp =
    R"(ROUTE: [TABLE] LABEL [table TABLE] [SET ...] VIA
       [TABLE] LABEL [table TABLE] [SET ...] nexthop VIA [nexthop VIA ...]
       [TABLE] LABEL [table TABLE] [SET ...] vrf NAME [payload PAYLOAD]
       [TABLE] LABEL [table TABLE] [SET ...] tail [vlan N | dev INTERFACE] [nexthop VIA ...]
       adjacency ID [multicast] [type TYPE] [use-backups] VIA [backup VIA ...]
       hardware LABEL adjacency ID [unprogrammed]
       mvpn VRF-ID (dev INTERFACE | vlan N)
SET:   multicast | type TYPE | owner OWNER | preference N | flags N
VIA:   [as [to] L1[/L2...] | push L1[/L2...]] [via [inet|inet6] ADDRESS] [dev INTERFACE]
       [fec ID] [weight N] [ATTRIBUTE ...]
ATTRIBUTE: @attributes@
TABLE: @lfib-list@
       (default: decap with a lookup or tail, else transit)
TYPE:  @type-list@, or a number of 0 to 255
       (default: implied by the rest)
OWNER: @owner-list@, or a number of 0 to 255 (default: operator)
Of several owners' routes for a label, those with the lowest preference are published, and the others
wait until they are removed. Usual preferences: operator 1, file 5, pseudowires 15, fpm 20, others 100.
Routes are given as lfib show, diff and watch print them. A via without "as" or "push" pops the
label; with vrf but without via, dev and fec it looks up what is beneath in that VRF.
A route of table transit is programmed into the hardware status, too, with an adjacency of its own,
and removed together with it. A route that table hardware has for itself wins over that.
JSON: {"tables", "generation", "added", "changed", "removed"})";

constexpr const char* routeCompletion = R"(0:* @tables@
1:[!0-9]*
*:table @lfibs@
*:type @types@
*:owner @owners@
*:tail vlan dev nexthop
*:dev @interfaces@
*:via inet inet6
@attribute-completion@*:as|*:to|*:push|*:inet|*:inet6|*:weight|*:fec
*:* @route-words@
)";

/// A line for each attribute that has a value: the words to choose from, or none.
std::string attributeCompletion() {
    std::string lines;
    for (const ViaAttribute& attribute : viaAttributes()) {
        std::string choices = attribute.value.find('|') == std::string::npos ? "" : attribute.value;
        std::replace(choices.begin(), choices.end(), '|', ' ');
        lines += fmt::format("*:{}{}{}\n", attribute.word, choices.empty() ? "" : " ", choices);
    }
    return lines;
}

std::string attributeList() {
    std::string list;
    for (const ViaAttribute& attribute : viaAttributes()) {
        list += fmt::format("{}{}{}{}", list.empty() ? "" : "\n       ", attribute.word,
                            attribute.value.empty() ? "" : " ", attribute.value);
    }
    return list;
}

template <class List>
std::string joined(const List& list, std::string_view separator) {
    return fmt::format("{}", fmt::join(list, separator));
}

constexpr Command commands[]{
    {"lfib", "add", "Add a route", addRoute, routeWord, "@route-help@", "@route-completion@",
     waitOptions},
    {"lfib",
     "del",
     "Remove a route",
     deleteRoute,
     {"ROUTE", "[TABLE] LABEL [owner OWNER]", "", 1, -1},
     R"(Without owner, removes the route of the operator, else the one from a file. Routes of others are
removed only by the name of their owner: @owner-list@, or a number.)",
     "0:* @tables@\n1:[0-9]* table owner\n*:table @lfibs@\n*:owner @owners@\n*:* owner\n",
     waitOptions},
    {"lfib",
     "diff",
     "Show what load would change",
     diffRoutes,
     configWord,
     R"(Prints a line with - for each route that load would remove and + for each that it would add.
Exit codes: 0 no difference, 1 a difference, 2 an error
JSON: {"tables", "generation", "changes": [{"before", "after"}]}, each a ROUTE as in lfib show,
or null)",
     "0:* @files@\n",
     {},
     ExitCode::usage},
    {"lfib", "load", "Replace all routes from files by those of one file, in one step", loadRoutes,
     configWord,
     R"(The routes belong to owner "file"; those of other owners stay. Lines with an owner other than
"file" are left out, and so are the operator's, as lfib show prints them, while they stand. What the platform has programmed and
multicast VPNs have no owner: the file has all of them.
Prints how many routes were added, changed and removed, and the generation. Equal routes are
not written again. An error leaves all tables unchanged.
JSON: {"tables", "generation", "added", "changed", "removed"})",
     "0:* @files@\n", waitOptions},
    {"lfib", "replace", "Add a route, or change it if it exists", replaceRoute, routeWord,
     "@route-help@", "@route-completion@", waitOptions},
    {"lfib",
     "show",
     "Show routes",
     showRoutes,
     {"WORDS", "[TABLE] [LABEL] [owner OWNER]", "A table, a label, an owner", 0, 4},
     R"(TABLE: @table-list@
       hardware means routes and adjacencies; in adjacency and mvpn, LABEL is an id
Prints a line for each entry as lfib add takes it; routes that wait for those of another owner
come last, behind "# waits for OWNER:". All are of one generation.
JSON: {"tables", "generation", "time", "routes": [ROUTE]}
  ROUTE by table:
    an LFIB    {"table", "label", "type", "multicast", "owner", "preference", "waitsFor", "flags",
                "lookup": {"vrf", "payload"}, "tail": {"interface"}, "vias": [VIA]}; waitsFor: the
               owner whose route is published
    hardware   {"table", "label", "adjacency", "unprogrammed", "derived"}; derived: programmed
               along with the label's route in table transit
    adjacency  {"table", "id", "type", "multicast", "useBackups", "vias": [VIA],
                "backups": [VIA]}
    mvpn       {"table", "vrfId", "interface"}
  A damaged entry has its label, id or vrfId and "corrupt": TEXT.
  VIA: {"action", "labels", "nexthop", "interface", "weight", "ttl", "tc", "pushTc", "pushTtl",
        "payload", "mtu", "vlan", "fec", "vrf", "entropy"}
  Every key is always there; null means unset.)",
     "0:* @tables@\n*:owner @owners@\n*:* owner\n"},
    {"lfib",
     "watch",
     "Show changes as they become visible",
     watchRoutes,
     {},
     R"(Prints generation, time, + (added), - (removed) or ~ (changed), and the route, until
interrupted. Looks every 20 ms, and shows the result of several changes to a route in between.
JSON: {"generation", "time", "change": "added", "removed" or "changed", "route"}, one object per
line; the route is as in lfib show, of a removed route only its table and label)",
     "",
     countOptions},
    {"counters",
     "clear",
     "Set the packets and bytes of labels to 0",
     clearCounters,
     {},
     "Other counters stay, so that what became of frames goes on to add up."},
    {"counters",
     "show",
     "Show packets and bytes by label, and all other counters",
     showCounters,
     {"LABEL", "", "Only this label", 0, 1},
     R"(JSON: {"labels": [{"label", "packets", "bytes"}],
       "counters": [{"category", "module", "reason", "count"}]}; %s in a reason: for all values)"},
    {"status",
     "",
     "What a running agent is doing, in short",
     showStatus,
     {},
     R"(Frames that come in, and replicas of them, are forwarded, punted, dropped, handed on, or queued
while their neighbour is resolved.
JSON: {"version", "run", "tables": {"name", "generation", "committedAt", "corruptions", "problem",
                                   "entries": {TABLE: ENTRIES}},
       "frames": {"in", "replicas", "forwarded", "punted", "dropped", "handedOn", "queued",
                  "answers"}, "neighbours": {"known", "wanted"}, "balanced",
       "reasons": {"punted": REASONS, "dropped": REASONS, "handedOn": REASONS}, "missed"}, where
       REASONS is {REASON: FRAMES}, and missed has the frames that came while a port's ring was
       full, and are not in "in"
With --quiet also fails when the frames do not add up, or something is wrong with the tables.)",
     "",
     quietOptions},
    {"drops",
     "show",
     "Show what has become of frames, and why",
     showDrops,
     {},
     R"(Names and order are those of the balance of a run; the columns: since the start, since this command
was given last by anybody, and per second of late. At any moment in and replicas are as many as
forwarded, punted, dropped, handed on and queued together; in has the answers that the router itself
has made. --reason shows these reasons, --port counts by port.
--by label has the 100 labels met most for each reason, --by neighbour the 100 next hops that packets
were dropped for because their MAC address is not known; in a flood their frames are estimated.
--frames, --follow and --pcapng have the first 128 bytes of each frame as it came in, and where it
would have left, as far as that was found. JSON of frames is an object for each on a line.
JSON: {"in", "answers", "replicas", "forwarded", "punted": FATE, "dropped": FATE, "handedOn": FATE, "queued",
       "balanced", "sinceAsked": {"seconds", "in", ...}, "perSecond": {"seconds", "in", ...}}, where
       FATE is {"frames", "reasons": {REASON: FRAMES}}
  --by port       {"drops-by-port": [{"port", "fate", "reason", "frames"}]}, null for the router's own
  --by label      {"drops-by-label": [{"label", "fate", "reason", "frames", "perSecond", "now"}]}
  --by neighbour  {"drops-by-neighbour": [{"port", "nexthop", "frames", "perSecond"}]}
  --frames        {"sequence", "time", "fate", "reason", "first", "port", "length", "bytes", "label",
                   "own", "via": {"port", "nexthop"}, "generation"}; time in nanoseconds since 1970;
                   own: made by this router, and of no port
now: what the tables have by now for a label that led nowhere: none, a route that is not programmed,
or one whose ports are down)",
     "",
     dropsOptions},
    {"explain",
     "",
     "Tell why a frame would go where it goes, or nowhere",
     explainFrameOfAgent,
     {"FRAME", "TEXT", "The frame: hexadecimal digits, CAPTURE:NUMBER, or words", 1, 1},
     R"(By the running agent's configuration, tables, ports and neighbours: the agent forwards, counts and
learns nothing. FRAME in words is headers with commas in between, the outermost first:
  mac DESTINATION [from SOURCE] | vlan ID [priority N] | label L[/ttl N][/tc N]
  control-word [0xHHHHHHHH] | ethernet DESTINATION [from SOURCE]
  ip SOURCE > DESTINATION [udp|tcp [SPORT >] DPORT | lsp-ping PREFIX/LENGTH | proto N] [ttl N]
     [tos N] [df] [size N]
For a frame that is not forwarded, the nearest change that would have it forwarded is shown, after it
has been tried on a copy.
Exit codes: 0 forwarded or punted; 1 dropped, handed on, or waiting for its neighbour; 2 an error
JSON: {"frame", "tables", "generation", "steps": [{"step", "text", "details", "values", "failed"}],
       "verdict": {"fate", "reason", "sent": [{"port", "length", "bytes"}]}, "fastPath",
       "change": {"commands", "notes", "then"}, "remarks", "trace"})",
     "",
     explainOptions,
     ExitCode::usage},
    {"what-if",
     "",
     "Tell which labels, prefixes and pseudowires a change would move",
     tellWhatIf,
     {"CHANGE", "TEXT", "What would change, in words", 1, -1},
     R"(CHANGE: link INTERFACE down
        via ADDRESS weight N
        lfib add ROUTE | lfib replace ROUTE | lfib del ROUTE
Nothing is changed. By the tables, and where an agent runs by the routes, pseudowires and
sub-interfaces of its configuration: all links are taken to be up but the one that is named, with
its sub-interfaces. Flows of a via in the hardware status and of an IP route whose link is down take
the other ones, or the backups; those of a via in another table are lost. A pseudowire's frames to
the other end go by its tunnel; those from there come to its circuit by a label.
Prints a line for what moves alike: how many labels or prefixes, where from and to, and which.
JSON: {"tables", "generation", "labels": COUNTS, "prefixes": COUNTS, "pseudowires": COUNTS,
       "circuits": COUNTS, "moves": [{"of", "count", "before": [SHARE], "after": [SHARE],
       "examples"}]}
  "pseudowires" are those to the other end, "circuits" those from there
  COUNTS: {"changed", "lost", "gained"}
  SHARE: {"to", "interface", "nexthop", "percent"})",
     "0:* link via lfib\n*:link @interfaces@\n*:lfib add replace del\n1:* down\n",
     {},
     ExitCode::usage},
    {"bundle",
     "",
     "Write all that a running agent forwards by into one file",
     writeBundleOfAgent,
     {"FILE", "TEXT", "The file", 1, 1},
     R"(The configuration in force, the tables at one generation, ports, neighbours, versions, counters,
settings, the frames that the agent has recorded, and what becomes of each. "ovix-agent replay FILE"
forwards them again, on any machine, without privileges, and tells what differs.
Names of ports, VRFs and pseudowires, MAC addresses and comments of the configuration stay;
--anonymise leaves the comments out. Exit codes: 0 written, 2 an error
JSON: {"file", "frames", "generation"})",
     "0:* @files@\n",
     bundleOptions,
     ExitCode::usage},
    {"trace",
     "start",
     "Trace some of the frames as they come, step by step",
     startTrace,
     {},
     R"(A line for each step: the frame's number, its port, the table asked last, the step, and what was
found. Ends by itself, when it is interrupted, or by trace stop; another start takes its place. Frames
that are not asked for take as long as without it. By --prefix, or by several options, some frames are
missed while the agent is busy: one burst of 32 is searched. With --reason, the first frame that goes
nowhere for it makes one line, and from then on those of its port and label are traced.
JSON: a text on each line)",
     "",
     traceOptions},
    {"trace", "stop", "End the trace that goes on", stopTrace},
    {"port",
     "show",
     "Show ports",
     showPorts,
     {},
     R"(A port that is waiting has no interface, or none that can be used; up and down is its link; why stands
behind it: no carrier, disabled, down by the configuration, its parent is down. With workers there is a
line for each one's queue, with its share of the port's frames. Rates are those of received frames;
missed are those that came while the ring was full.
JSON: {"ports": [{"name", "kind", "state", "problem", "mac", "mtu", "vrf", "addresses", "parent",
                  "vlans", "mpls", "received", "receivedBytes", "perSecond", "ring": {"frames", "drops"},
                  "queues": [{"received", "perSecond", "drops"}], "sent": {"frames", "bytes"}}]}
  kind, received and perSecond are null in a run on captures, the others also of a VLAN sub-interface)"},
    {"neighbour",
     "show",
     "Show neighbours whose MAC address is known",
     showNeighbours,
     {},
     R"(JSON: {"neighbours": [{"address", "port", "mac", "configured"}]})"},
    {"route",
     "show",
     "Show IP routes by which packets are forwarded",
     showIpRoutes,
     {"VRF", "", "Only those of this VRF", 0, 1},
     R"(A line for each via, with the labels that it pushes, outermost first.
JSON: {"routes": [{"vrf", "prefix", "kind", "reason", "configured",
                   "vias": [{"nexthop", "port", "weight", "labels"}]}]}
  kind: forward, local, broadcast or drop, for a reason; nexthop is null where packets go to their
  own destination)"},
    {"pseudowire",
     "show",
     "Show pseudowires, why they carry nothing, and their tunnels",
     showPseudowires,
     {},
     R"(Signalled ones, by ldpd, need a route with labels to the other end, or a link to it.
JSON: {"pseudowires": [{"name", "circuit", "state", "why", "signalled", "neighbour", "id",
                        "localLabel", "remoteLabel", "controlWord", "localMtu", "remoteMtu",
                        "tunnel": [{"port", "nexthop", "labels"}],
                        "sent", "delivered": {"frames", "bytes"}}]})"},
    {"fec",
     "show",
     "Show FECs",
     showFecs,
     {},
     R"(JSON: {"fecs": [{"id", "nexthops": [{"nexthop", "port", "weight"}]}]})"},
    {"vrf", "show", "Show VRFs", showVrfs, {}, R"(JSON: {"vrfs": [{"name", "routes", "ports"}]})"},
    {"tables",
     "repair",
     "Make tables usable again whose header is damaged or whose file was cut short",
     repairTables,
     {},
     R"(Prints what was damaged and what is lost. Where the newest generation is lost, the one before
it that is whole comes back. Takes its turn among the writers.
JSON: {"tables", "generation", "findings": [TEXT]})",
     "",
     waitOptions},
    {"completion",
     "bash",
     "Print a completion script for bash",
     printBashCompletion,
     {},
     "Use: source <(ovixctl completion bash)"},
    {"completion",
     "zsh",
     "Print a completion script for zsh",
     printZshCompletion,
     {},
     "Use: source <(ovixctl completion zsh), once compinit has been called; needs bash"},
};

} // namespace

std::string expanded(std::string text) {
    constexpr auto types = Tessel::wordList<Mpls::LfibViaType>();
    constexpr auto tables = Tessel::wordList<Mpls::TableId>();
    constexpr auto owners = Tessel::wordList<Mpls::RouteOwner>();
    // A text may hold names that follow it.
    const std::pair<std::string_view, std::string> texts[]{
        {"@route-help@", routeHelp},
        {"@route-completion@", routeCompletion},
        {"@attributes@", attributeList()},
        {"@attribute-completion@", attributeCompletion()},
        {"@route-words@", joined(routeWords(), " ")},
        {"@types@", joined(types, " ")},
        {"@owners@", joined(owners, " ")},
        {"@owner-list@", joined(owners, ", ")},
        {"@type-list@", joined(types, ", ")},
        {"@lfibs@", joined(lfibWords(), " ")},
        {"@lfib-list@", joined(lfibWords(), ", ")},
        {"@tables@", joined(tables, " ")},
        {"@table-list@", joined(tables, ", ")},
        {"@interfaces@", "$(cd /sys/class/net 2> /dev/null && compgen -G '*')"},
        // Own ones, else the system's: the shell's user may be another than the one who printed
        // this.
        {"@present-tables@", "$({ cd \"${OVIX_TABLES_DIR:-/dev/shm/ovix-$EUID}\" || "
                             "cd \"${OVIX_TABLES_DIR:-/dev/shm/ovix}\"; } 2> /dev/null && "
                             "compgen -G '*' | grep -v :lock)"},
    };
    for (const auto& [name, value] : texts) {
        for (std::size_t at = 0; (at = text.find(name, at)) != std::string::npos;) {
            text.replace(at, name.size(), value);
        }
    }
    return text;
}

std::span<const CommandGroup> commandGroups() noexcept {
    return groups;
}

std::span<const Command> allCommands() noexcept {
    return commands;
}

std::span<const Option> globalOptions() noexcept {
    return globals;
}

} // namespace OvixCtl
