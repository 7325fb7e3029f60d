// A module for programs of DPDK, by their option -d: frames that devices of net_null hand out
// become labelled ones, whoever takes them. Each gets the first bytes of a frame, from
// OVIX_BENCH_FRAME in hexadecimal, the device's own address as its destination, and one label of
// OVIX_BENCH_LABELS many, from 16 on, in random order, which is another one for each queue.

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <pthread.h>
#include <random>
#include <rte_ethdev.h>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t labelAt = sizeof(rte_ether_hdr);
constexpr std::uint32_t firstLabel = 16;
constexpr std::uint32_t bottomAndTtl = 0x1ff;

/// What is written into the frames of a queue.
struct Source {
    std::array<std::uint8_t, 64> first{};
    std::vector<rte_be32_t> entries; ///< label stack entries, in the order of the frames
    std::size_t next = 0;
};

std::vector<rte_be32_t> shuffledEntries(std::uint32_t labels, std::uint16_t queue) {
    // A short list would fit nobody's count of frames at once; repeating it costs nothing.
    std::vector<rte_be32_t> entries(std::max(labels, 4096U));
    for (std::uint32_t i = 0; i < entries.size(); ++i) {
        entries[i] = rte_cpu_to_be_32(((firstLabel + i % labels) << 12U) | bottomAndTtl);
    }
    std::shuffle(entries.begin(), entries.end(), std::mt19937(1U + queue));
    return entries;
}

Source* makeSource(std::uint16_t port, std::uint16_t queue, std::string_view frame,
                   std::uint32_t labels) {
    auto* const source = new Source; // the queue's, until the process ends
    for (std::size_t i = 0; i < source->first.size() && 2 * i + 1 < frame.size(); ++i) {
        source->first[i] =
            static_cast<std::uint8_t>(std::stoul(std::string(frame.substr(2 * i, 2)), nullptr, 16));
    }
    rte_ether_addr own{};
    rte_eth_macaddr_get(port, &own);
    std::copy(std::begin(own.addr_bytes), std::end(own.addr_bytes), source->first.begin());
    source->entries = shuffledEntries(labels, queue);
    return source;
}

std::uint16_t label(std::uint16_t, std::uint16_t, rte_mbuf** frames, std::uint16_t count,
                    std::uint16_t, void* of) {
    auto& source = *static_cast<Source*>(of);
    for (std::uint16_t i = 0; i < count; ++i) {
        auto* const bytes = rte_pktmbuf_mtod(frames[i], std::uint8_t*);
        std::memcpy(bytes, source.first.data(), source.first.size());
        std::memcpy(bytes + labelAt, &source.entries[source.next], sizeof(rte_be32_t));
        source.next = source.next + 1 < source.entries.size() ? source.next + 1 : 0;
    }
    return count;
}

/// Those of a device of net_null that frames can be taken from; none while there are none.
std::uint16_t queuesOf(std::uint16_t port) {
    rte_eth_dev_info info{};
    const bool isKnown =
        rte_eth_dev_is_valid_port(port) != 0 && rte_eth_dev_info_get(port, &info) == 0;
    return isKnown && std::string_view(info.driver_name) == "net_null" ? info.nb_rx_queues : 0;
}

/// Queues are the program's to make, later, and nobody reports that.
void watchDevices(const std::string& frame, std::uint32_t labels) {
    std::set<std::pair<std::uint16_t, std::uint16_t>> done;
    for (;;) {
        for (std::uint16_t port = 0; port < 8; ++port) {
            for (std::uint16_t queue = 0; queue < queuesOf(port); ++queue) {
                if (done.insert({port, queue}).second) {
                    rte_eth_add_rx_callback(port, queue, label,
                                            makeSource(port, queue, frame, labels));
                }
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

[[gnu::constructor]] void start() {
    const char* const frame = std::getenv("OVIX_BENCH_FRAME");
    const char* const labels = std::getenv("OVIX_BENCH_LABELS");
    if (frame == nullptr || labels == nullptr) {
        return;
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all); // the program's own threads take its signals
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread(watchDevices, std::string(frame), static_cast<std::uint32_t>(std::stoul(labels)))
        .detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace
