#include "LatencyBench.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <memory>
#include <net/if.h>
#include <optional>
#include <poll.h>
#include <random>
#include <stdexcept>
#include <thread>

#include "LiveCase.h"
#include "LivePassage.h"
#include "LiveRegistration.h"

namespace Bench {

using namespace std::chrono_literals;

namespace {

constexpr int frames = 1000;

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// What arrives at a link's end, with the time at which the kernel has taken it there: how long it
/// takes to wake this process does not count.
class ArrivalTimes {
  public:
    explicit ArrivalTimes(const std::string& link)
        : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
        const int on = 1;
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ALL);
        address.sll_ifindex = static_cast<int>(if_nametoindex(link.c_str()));
        if (!socket_.isOpen() ||
            setsockopt(socket_.value(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0 ||
            bind(socket_.value(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
                0) {
            throw std::runtime_error("cannot receive on " + link);
        }
    }

    /// Of the next frame, by the real-time clock; empty when none comes.
    std::optional<std::int64_t> next() const {
        pollfd waiting{socket_.value(), POLLIN, 0};
        std::array<char, 2048> bytes{};
        std::array<char, 256> control{};
        iovec extent{bytes.data(), bytes.size()};
        msghdr message{};
        message.msg_iov = &extent;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        if (poll(&waiting, 1, 100) != 1 || recvmsg(socket_.value(), &message, 0) < 0) {
            return std::nullopt;
        }
        const cmsghdr* const header = CMSG_FIRSTHDR(&message);
        if (header == nullptr || header->cmsg_type != SCM_TIMESTAMPNS) {
            throw std::runtime_error("the kernel does not say when a frame has arrived");
        }
        timespec time{};
        std::copy_n(CMSG_DATA(header), sizeof time, reinterpret_cast<unsigned char*>(&time));
        return nanoseconds(time);
    }

  private:
    Posix::FileDescriptor socket_;
};

/// In nanoseconds, sorted.
std::vector<std::int64_t> latencies(FrameSender& sender, const std::string& sink) {
    const ArrivalTimes arrivals(sink);
    std::minstd_rand random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
    std::vector<std::int64_t> all;
    for (int i = 0; i < frames; ++i) {
        std::this_thread::sleep_for(500us + std::chrono::microseconds(random() % 500));
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        sender.send(1);
        if (const auto arrival = arrivals.next()) {
            all.push_back(*arrival - nanoseconds(now));
        }
    }
    std::sort(all.begin(), all.end());
    return all;
}

void measure(benchmark::State& state, LiveNetwork& network, const LiveCase& of) {
    network.kernelForwardingIs(of.router == "kernel");
    FrameSender sender("gen", framesFor(of));
    const auto agent = of.isAgent() ? std::make_unique<AgentProcess>(agentConfig(of)) : nullptr;
    awaitPassage(sender, of.sink(), agent.get());
    for (auto _ : state) {
        const std::vector<std::int64_t> all = latencies(sender, of.sink());
        if (all.empty()) {
            throw std::runtime_error("no frame has arrived");
        }
        const auto microseconds = [&all](std::size_t percent) {
            return 1e-3 * static_cast<double>(all[(all.size() - 1) * percent / 100]);
        };
        state.SetIterationTime(1e-6 * microseconds(50));
        state.counters["min_us"] = microseconds(0);
        state.counters["median_us"] = microseconds(50);
        state.counters["p99_us"] = microseconds(99);
        state.counters["max_us"] = microseconds(100);
        state.counters["lost"] = frames - static_cast<double>(all.size());
    }
}

} // namespace

void registerLatencyBenchmarks(LiveNetwork& network) {
    const std::vector<LiveCase> cases{
        {"nobody", Traffic::ipv4},     {"kernel", Traffic::ipv4},  {"packet", Traffic::ipv4},
        {"packet", Traffic::labelled}, {"xdp", Traffic::labelled},
    };
    for (const LiveCase& of : cases) {
        registerLive(of.name() + "/latency", [&network, of](benchmark::State& state) {
            measure(state, network, of);
        })->Unit(benchmark::kMicrosecond);
    }
}

} // namespace Bench
