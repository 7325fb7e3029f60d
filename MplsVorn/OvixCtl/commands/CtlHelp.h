#pragma once

namespace OvixCtl {

// What --help tells beneath the options.

inline constexpr const char* mainHelp =
    "--tables, --control and --json may stand before or after the command.\n"
    "Exit codes:\n"
    "  0  done\n"
    "  1  it could not be done; what was shown is not whole\n"
    "  2  the command line is wrong\n"
    "(lfib diff: 0 no difference, 1 a difference, 2 trouble)";

inline constexpr const char* loadHelp =
    "Prints how many routes were added, changed and removed, and the generation. Routes that are\n"
    "already so are left alone; if anything is wrong, all are.\n"
    "JSON: {\"tables\", \"generation\", \"added\", \"changed\", \"removed\"}";

inline constexpr const char* diffHelp =
    "Prints a line with - for what is to go and one with + for what is to come.\n"
    "Exit codes: 0 no difference, 1 a difference, 2 trouble\n"
    "JSON: {\"tables\", \"generation\", \"changes\": [{\"before\", \"after\"}]}, each a ROUTE as "
    "in\n"
    "lfib show, or null";

inline constexpr const char* routeHelp =
    "ROUTE: LABEL [table TABLE] HOP\n"
    "       LABEL [table TABLE] nexthop HOP [nexthop HOP ...]\n"
    "       LABEL [table TABLE] vrf NAME [payload ipv4|ipv6|auto]\n"
    "HOP:   [as L1[/L2...] | push L1[/L2...]] [via [inet|inet6] ADDRESS] [dev INTERFACE]\n"
    "       [weight N]\n"
    "TABLE: transit (which is meant when none is named), decap (which is meant with vrf),\n"
    "       evpn-ethernet-segment-filter, evpn-etree-leaf-label or pseudowire\n"
    "A label of table transit is programmed into the hardware status, too, with an adjacency of\n"
    "its own, whose id is the label.\n"
    "A hop without \"as\" or \"push\" pops the label.\n"
    "JSON: {\"tables\", \"generation\", \"added\", \"changed\", \"removed\"}";

inline constexpr const char* showHelp =
    "TABLE: decap, evpn-ethernet-segment-filter, evpn-etree-leaf-label, pseudowire, transit,\n"
    "       hardware (routes and adjacencies) or mvpn, where LABEL is the id of a VRF\n"
    "All that is shown is of one generation.\n"
    "JSON: {\"tables\", \"generation\", \"time\", \"routes\": [ROUTE]}\n"
    "  ROUTE by table:\n"
    "    an LFIB    {\"table\", \"label\", \"type\", \"multicast\", \"lookup\": {\"vrf\", "
    "\"payload\"},\n"
    "                \"tail\": {\"interface\"}, \"vias\": [VIA]}\n"
    "    hardware   {\"table\", \"label\", \"adjacency\", \"unprogrammed\"}\n"
    "    adjacency  {\"table\", \"id\", \"type\", \"multicast\", \"useBackups\", \"vias\": [VIA],\n"
    "                \"backups\": [VIA]}\n"
    "    mvpn       {\"table\", \"vrfId\", \"interface\"}\n"
    "  or, for what cannot be right, \"corrupt\": TEXT behind the label, id or vrfId\n"
    "  VIA: {\"action\", \"labels\", \"nexthop\", \"interface\", \"weight\", \"ttl\", \"tc\",\n"
    "        \"pushTtl\", \"payload\", \"mtu\", \"vlan\", \"fec\", \"vrf\"}\n"
    "  Every key is always there; null stands for what is not told.";

inline constexpr const char* watchHelp =
    "Prints generation, time, + (added), - (removed) or ~ (changed), and the route, until\n"
    "interrupted. Looks every 20 ms; of several changes to a route in between, tells the result.\n"
    "JSON: {\"generation\", \"time\", \"change\": \"added\", \"removed\" or \"changed\", "
    "\"route\"}, one\n"
    "object per line; the route is as in lfib show, and of a removed one what names it";

inline constexpr const char* countersHelp =
    "JSON: {\"labels\": [{\"label\", \"packets\", \"bytes\"}],\n"
    "       \"counters\": [{\"category\", \"module\", \"reason\", \"count\"}]}";

inline constexpr const char* completionHelp = "Use: source <(ovixctl completion bash)";

} // namespace OvixCtl
