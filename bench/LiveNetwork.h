#pragma once

#include <cstdint>
#include <string>

namespace Bench {

/// The links of a router, in this process' network namespace, which holds nothing else:
///
///     gen --- in   [ router ]   out1 --- sink1
///                               out2 --- sink2
///
/// The next hops behind out1 and out2 are known, and are stations that nobody is, so that nobody
/// does anything about what reaches a sink. 10.9.0.0/16 leads out by out1.
class LiveNetwork {
  public:
    /// Throws std::runtime_error.
    LiveNetwork();
    LiveNetwork(const LiveNetwork&) = delete;
    LiveNetwork& operator=(const LiveNetwork&) = delete;

    /// Whether the kernel is the router.
    void kernelForwardingIs(bool forwards);
    /// Whether the link's end carries anything.
    void upIs(const std::string& link, bool up);

    static constexpr const char* firstNextHop = "10.0.2.2";
    static constexpr const char* secondNextHop = "10.0.3.2";
};

/// TAP devices tap-in and tap-out, each joined to the link of the router by a bridge, as long as
/// this lives:
///
///     gen --- in (bridge) tap-in   [ router ]   tap-out (bridge) out1 --- sink1
class BridgedTaps {
  public:
    BridgedTaps();
    ~BridgedTaps();
    BridgedTaps(const BridgedTaps&) = delete;
    BridgedTaps& operator=(const BridgedTaps&) = delete;

    /// The last byte of the station that the router is at tap-in. It is not the device's: a bridge
    /// keeps for itself what is sent to one of its own.
    static constexpr std::uint8_t station = 0x77;
};

/// How many frames the kernel says that the link's end has received. Throws std::runtime_error.
std::uint64_t framesReceived(const std::string& link);

} // namespace Bench
