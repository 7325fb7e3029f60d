#include "EthernetDevice.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <rte_bus.h>
#include <rte_dev.h>
#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_ethdev.h>
#include <rte_mbuf.h>
#include <rte_ring.h>
#include <string_view>

namespace OvixDpdk {

namespace {

constexpr std::uint16_t ringSize = OvixAgent::Card::queueFrames;
/// What is received, lent and cached, beside what lies in the rings of the cards that send it and
/// of the workers that it is handed to.
constexpr std::size_t buffers = 2 * ringSize;
/// Ethernet with two tags and its check sequence.
constexpr std::uint32_t beyondMtu = 26;

static_assert(OvixAgent::frameHeadroom <= RTE_PKTMBUF_HEADROOM);

[[noreturn]] void fail(const std::string& device, const std::string& what, int error = 0) {
    throw OvixAgent::CardError(
        "device " + device + ": " + what +
        (error == 0 ? "" : std::string(": ") + rte_strerror(std::abs(error))));
}

std::string nameOf(const std::string& device) {
    return device.substr(0, device.find(','));
}

bool isPciAddress(const std::string& name) {
    return name.size() >= 7 && name.find(':') != std::string::npos &&
           std::isxdigit(static_cast<unsigned char>(name[0])) != 0;
}

/// Before DPDK's own words for it, which name neither the driver nor what helps.
void checkPciDevice(const std::string& device) {
    const std::string name = nameOf(device);
    if (!isPciAddress(name)) {
        return;
    }
    const std::filesystem::path at = "/sys/bus/pci/devices/" + name;
    std::error_code none;
    if (!std::filesystem::exists(at, none)) {
        fail(device, "there is no such PCI device; dpdk-devbind.py --status lists them");
    }
    const std::string driver = std::filesystem::read_symlink(at / "driver", none).filename();
    const bool isShared = driver.starts_with("mlx"); // works beside the kernel's driver
    if (driver != "vfio-pci" && driver != "uio_pci_generic" && driver != "igb_uio" && !isShared) {
        fail(device, (driver.empty() ? "is bound to no driver"
                                     : "is bound to the kernel's driver " + driver) +
                         "; dpdk-devbind.py --bind=vfio-pci " + name + " gives it to DPDK");
    }
}

std::uint16_t probe(const std::string& device) {
    std::uint16_t port = 0;
    const std::string name = nameOf(device);
    if (rte_eth_dev_get_port_by_name(name.c_str(), &port) == 0) {
        fail(device, "another port has it");
    }
    checkPciDevice(device);
    if (const int error = rte_dev_probe(device.c_str()); error != 0) {
        constexpr int unspecific = -1; // of drivers, and no EPERM
        fail(device,
             "cannot be opened (why, its driver has said above, if it has). DPDK knows devices by "
             "PCI addresses and by drivers' names, such as net_af_packet0,iface=eth0",
             error == unspecific ? 0 : error);
    }
    if (rte_eth_dev_get_port_by_name(name.c_str(), &port) != 0) {
        fail(device, "is no Ethernet device");
    }
    return port;
}

struct Queues {
    std::uint16_t receive = 1;
    std::uint16_t transmit = 1;
};

/// A driver that spreads frames over all of its queues, also those that nobody asked for.
bool hasFixedQueues(const rte_eth_dev_info& device) {
    return std::string_view(device.driver_name) == "net_af_packet";
}

Queues queuesFor(const std::string& name, const rte_eth_dev_info& device, std::uint32_t workers) {
    if (workers == 0) {
        return {};
    }
    if (device.max_rx_queues < workers || device.max_tx_queues < workers + 1) {
        fail(name, "has " + std::to_string(device.max_rx_queues) + " receive and " +
                       std::to_string(device.max_tx_queues) + " transmit queues for " +
                       std::to_string(workers) + " workers, which need " + std::to_string(workers) +
                       " and " + std::to_string(workers + 1) +
                       ": fewer workers do, or more queues where the driver has an argument for "
                       "them (net_af_packet0,iface=eth0,framecnt=8192,blocksz=65536,qpairs=" +
                       std::to_string(workers + 1) + ")");
    }
    const auto receive = static_cast<std::uint16_t>(workers);
    return {hasFixedQueues(device) ? device.max_rx_queues : receive,
            static_cast<std::uint16_t>(workers + 1)};
}

constexpr std::uint64_t ipFlows =
    RTE_ETH_RSS_IP | RTE_ETH_RSS_TCP | RTE_ETH_RSS_UDP | RTE_ETH_RSS_SCTP;

} // namespace

void EthernetDevice::Release::operator()(rte_mempool* pool) const noexcept {
    rte_mempool_free(pool);
}

void EthernetDevice::Release::operator()(rte_ring* ring) const noexcept {
    for (void* left = nullptr; rte_ring_dequeue(ring, &left) == 0;) {
        rte_pktmbuf_free(static_cast<rte_mbuf*>(left));
    }
    rte_ring_free(ring);
}

EthernetDevice::EthernetDevice(const OvixAgent::CardOptions& options)
    : name_(options.device), port_(probe(options.device)), workers_(options.workers) {
    std::uint16_t mtu = 0;
    rte_eth_dev_get_mtu(port_, &mtu);
    mtu_ = options.mtu == 0 ? mtu : options.mtu;
    try {
        start(options);
        takeMac(options.mac);
    } catch (const OvixAgent::CardError&) {
        close(); // a driver may have changed an interface by now
        throw;
    }
}

void EthernetDevice::start(const OvixAgent::CardOptions& options) {
    int error = configure(options.mtu);
    if (options.mtu != 0) {
        takeMtu(options.mtu, error);
    }
    makePools(options.cards);
    if (!spreadsLabels_) {
        makeRings();
    }
    error = error != 0 ? error : setUpQueues();
    error = error != 0 ? error : rte_eth_dev_start(port_);
    if (error != 0) {
        fail(name_, "cannot be started", error);
    }
    rte_eth_promiscuous_enable(port_);  // stations are checked by who takes the frames
    rte_eth_allmulticast_enable(port_); // for devices without the other
}

/// 0 or an error number.
int EthernetDevice::configure(std::uint32_t mtu) {
    rte_eth_dev_info device{};
    rte_eth_dev_info_get(port_, &device);
    Queues queues = queuesFor(name_, device, workers_);
    const std::uint64_t offered =
        workers_ > 1 ? device.flow_type_rss_offloads & (ipFlows | RTE_ETH_RSS_MPLS) : 0;
    rte_eth_conf config{};
    config.rxmode.mtu = mtu; // 0: the driver's
    config.rxmode.mq_mode = offered != 0 ? RTE_ETH_MQ_RX_RSS : RTE_ETH_MQ_RX_NONE;
    config.rx_adv_conf.rss_conf.rss_hf = offered;
    int error = rte_eth_dev_configure(port_, queues.receive, queues.transmit, &config);
    if (error != 0 && queues.receive < queues.transmit) { // net_tap wants as many of both
        queues.receive = queues.transmit;
        error = rte_eth_dev_configure(port_, queues.receive, queues.transmit, &config);
    }
    receiveQueues_ = queues.receive;
    const bool hasOneEach = workers_ == receiveQueues_;
    spreadsIp_ = hasOneEach && (offered & RTE_ETH_RSS_IP) != 0;
    spreadsLabels_ = workers_ < 2 || (hasOneEach && (offered & RTE_ETH_RSS_MPLS) != 0);
    return error;
}

/// Drivers without a call for it have taken it when they were configured, with this result.
void EthernetDevice::takeMtu(std::uint32_t asked, int configured) {
    const int refused = configured != 0
                            ? configured
                            : rte_eth_dev_set_mtu(port_, static_cast<std::uint16_t>(asked));
    if (refused != 0 && refused != -ENOTSUP) {
        fail(name_, "does not take mtu " + std::to_string(asked), refused);
    }
}

void EthernetDevice::takeMac(const Lumo::EthAddr& asked) {
    rte_ether_addr own{};
    if (asked != Lumo::EthAddr{}) {
        // A card that cannot is promiscuous, and hears its frames all the same.
        std::copy(asked.begin(), asked.end(), std::begin(own.addr_bytes));
        rte_eth_dev_default_mac_addr_set(port_, &own);
        mac_ = asked;
        return;
    }
    rte_eth_macaddr_get(port_, &own);
    if (!rte_is_valid_assigned_ether_addr(&own)) { // such as net_ring has
        rte_eth_random_addr(std::begin(own.addr_bytes));
        rte_eth_dev_default_mac_addr_set(port_, &own);
    }
    std::copy(std::begin(own.addr_bytes), std::end(own.addr_bytes), mac_.begin());
}

void EthernetDevice::makePools(std::size_t cards) {
    const auto room = static_cast<std::uint16_t>(std::min<std::uint32_t>(
        std::max<std::uint32_t>(mtu_ + beyondMtu, RTE_MBUF_DEFAULT_DATAROOM) + RTE_PKTMBUF_HEADROOM,
        UINT16_MAX));
    const std::size_t handed = spreadsLabels_ ? 0 : workers_;
    const auto count = static_cast<unsigned int>(buffers + (cards + handed) * ringSize - 1);
    for (std::uint32_t thread = 0; thread <= workers_; ++thread) {
        const std::string pool = "ovix" + std::to_string(port_) + "." + std::to_string(thread);
        pools_.emplace_back(rte_pktmbuf_pool_create(pool.c_str(), count, 256, 0, room,
                                                    rte_eth_dev_socket_id(port_)));
        if (!pools_.back()) {
            fail(name_,
                 rte_eal_has_hugepages() != 0
                     ? "no memory for frames: too few hugepages are free; sysctl vm.nr_hugepages "
                       "makes more, dpdk: eal: [--no-huge, -m, MEGABYTES] does without"
                     : "no memory for frames; dpdk: eal: [-m, MEGABYTES] gives more",
                 rte_errno);
        }
    }
}

void EthernetDevice::makeRings() {
    for (std::uint32_t worker = 0; worker < workers_; ++worker) {
        const std::string ring = "ovix" + std::to_string(port_) + "." + std::to_string(worker);
        rings_.emplace_back(
            rte_ring_create(ring.c_str(), ringSize, rte_eth_dev_socket_id(port_), RING_F_SC_DEQ));
        if (!rings_.back()) {
            fail(name_, "no memory for the rings between workers", rte_errno);
        }
    }
}

/// 0 or an error number.
int EthernetDevice::setUpQueues() {
    const auto near = static_cast<unsigned int>(rte_eth_dev_socket_id(port_));
    std::uint16_t receives = ringSize;
    std::uint16_t sends = ringSize;
    int error = rte_eth_dev_adjust_nb_rx_tx_desc(port_, &receives, &sends);
    for (std::uint16_t queue = 0; error == 0 && queue < receiveQueues_; ++queue) {
        rte_mempool* const pool = pools_[workers_ == 0 ? 0 : queue % workers_].get();
        error = rte_eth_rx_queue_setup(port_, queue, receives, near, nullptr, pool);
    }
    for (std::uint16_t queue = 0; error == 0 && queue <= workers_; ++queue) {
        error = rte_eth_tx_queue_setup(port_, queue, sends, near, nullptr);
    }
    return error;
}

EthernetDevice::~EthernetDevice() {
    close();
}

void EthernetDevice::close() {
    rte_eth_promiscuous_disable(port_); // an interface beneath it stays
    rte_eth_allmulticast_disable(port_);
    rte_eth_dev_stop(port_);
    rte_eth_dev_close(port_);
    rings_.clear(); // the frames in them go back to the pools
}

bool EthernetDevice::isLinkUp() const {
    rte_eth_link link{};
    return rte_eth_link_get_nowait(port_, &link) == 0 && link.link_status == RTE_ETH_LINK_UP;
}

std::uint64_t EthernetDevice::missed() const {
    rte_eth_stats stats{};
    return rte_eth_stats_get(port_, &stats) == 0 ? stats.imissed + stats.rx_nombuf : 0;
}

} // namespace OvixDpdk
