#include "LiveCase.h"

#include <fmt/format.h>

#include "FrameSender.h"
#include "TableSamples.h"

namespace Bench {

namespace {

constexpr std::uint32_t flows = 256;

} // namespace

std::string agentConfig(const LiveCase& of) {
    constexpr const char* ports = R"(
ports:
  - name: {in}
    kind: {kind}
    mac: "02:00:00:00:00:{station:02x}"
    vrf: default
    addresses: [10.0.1.1/24]
  - name: {out}
    kind: {kind}
    mac: "02:00:00:00:00:78"
    vrf: default
    addresses: [10.0.2.1/24]
routes:
  - prefix: 10.9.0.0/16
    vias:
      - interface: {out}
        nexthop: {nexthop}
hardware:
  adjacencies:
    - id: 1
      vias:
        - interface: {out}
          nexthop: {nexthop}
          action: swap
          labels: [300]
  routes:
)";
    using namespace fmt::literals;
    std::string text = fmt::format(
        ports, "in"_a = of.hasTaps() ? "tap-in" : "in", "out"_a = of.hasTaps() ? "tap-out" : "out1",
        "kind"_a = of.router, "station"_a = of.station(), "nexthop"_a = LiveNetwork::firstNextHop);
    for (std::uint32_t i = 0; i < flows; ++i) {
        text += fmt::format("    - label: {}\n      adjacency: 1\n", firstLabel + i);
    }
    return text;
}

std::vector<TestSupport::Raw::Bytes> framesFor(const LiveCase& of) {
    std::vector<TestSupport::Raw::Bytes> frames =
        of.traffic == Traffic::ipv4 ? ipv4Frames(flows) : labelledFrames(flows);
    for (TestSupport::Raw::Bytes& frame : frames) {
        frame[5] = of.station();
    }
    return frames;
}

} // namespace Bench
