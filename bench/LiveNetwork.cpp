#include "LiveNetwork.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

#include "Links.h"
#include "Posix/FileDescriptor.h"

namespace Bench {

using TestSupport::ip;

namespace {

constexpr const char* nobody = "02:00:00:00:00:99";

void write(const std::string& path, const char* value) {
    std::ofstream file(path);
    file << value << std::flush;
    if (!file) {
        throw std::runtime_error("cannot write to " + path);
    }
}

/// As `ip` does, for what may be gone already.
void ipIfPossible(const std::string& arguments) noexcept {
    try {
        ip(arguments);
    } catch (const std::exception&) {
    }
}

void addBridgedTap(const std::string& bridge, const std::string& tap, const std::string& link) {
    ip("link add name " + bridge + " type bridge mcast_snooping 0");
    ip("tuntap add dev " + tap + " mode tap");
    for (const std::string& port : {bridge, tap}) {
        ip("link set " + port + " addrgenmode none");
    }
    for (const std::string& port : {link, tap}) {
        ip("link set " + port + " master " + bridge);
    }
    ip("link set " + tap + " up");
    ip("link set " + bridge + " up");
}

} // namespace

LiveNetwork::LiveNetwork() {
    ip("link set lo up");
    TestSupport::addLinkPair({"gen", "02:00:00:00:01:02"}, {"in", "02:00:00:00:00:01"});
    TestSupport::addLinkPair({"out1", "02:00:00:00:00:11"}, {"sink1", "02:00:00:00:00:12"});
    TestSupport::addLinkPair({"out2", "02:00:00:00:00:21"}, {"sink2", "02:00:00:00:00:22"});
    ip("addr add 10.0.1.1/24 dev in");
    ip("addr add 10.0.2.1/24 dev out1");
    ip("addr add 10.0.3.1/24 dev out2");
    ip(std::string("neigh add ") + firstNextHop + " dev out1 nud permanent lladdr " + nobody);
    ip(std::string("neigh add ") + secondNextHop + " dev out2 nud permanent lladdr " + nobody);
    ip(std::string("route add 10.9.0.0/16 via ") + firstNextHop);
    for (const char* interface : {"all", "in"}) {
        write(std::string("/proc/sys/net/ipv4/conf/") + interface + "/rp_filter", "0");
    }
    kernelForwardingIs(false);
}

void LiveNetwork::kernelForwardingIs(bool forwards) {
    write("/proc/sys/net/ipv4/ip_forward", forwards ? "1" : "0");
}

void LiveNetwork::upIs(const std::string& link, bool up) {
    ip("link set " + link + (up ? " up" : " down"));
}

BridgedTaps::BridgedTaps() {
    addBridgedTap("bridge-in", "tap-in", "in");
    addBridgedTap("bridge-out", "tap-out", "out1");
    ip(std::string("neigh add ") + LiveNetwork::firstNextHop +
       " dev tap-out nud permanent lladdr " + nobody);
}

BridgedTaps::~BridgedTaps() {
    for (const char* device : {"bridge-in", "bridge-out", "tap-in", "tap-out"}) {
        ipIfPossible(std::string("link del ") + device);
    }
}

std::uint64_t framesReceived(const std::string& link) {
    std::array<char, 8192> table{};
    const Posix::FileDescriptor file(open("/proc/self/net/dev", O_RDONLY | O_CLOEXEC));
    const ssize_t size = read(file.value(), table.data(), table.size());
    const std::string_view text(table.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    const std::size_t line = text.find(" " + link + ":");
    if (line == std::string_view::npos) {
        throw std::runtime_error("the kernel knows no interface " + link);
    }
    std::istringstream numbers{std::string(text.substr(line + link.size() + 2, 100))};
    std::uint64_t bytes = 0;
    std::uint64_t frames = 0;
    numbers >> bytes >> frames;
    return frames;
}

} // namespace Bench
