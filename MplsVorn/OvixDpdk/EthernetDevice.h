#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Live/ports/Card.h"

struct rte_mempool;
struct rte_ring;

namespace OvixDpdk {

/// An Ethernet device of DPDK, started, promiscuous, without offloads: frames come and go as they
/// are on the wire. One thread has one queue each way. Several, its workers, share the receive
/// queues, the first of which has those left over; each of them has a transmit queue, and so has
/// the thread beside them.
///
/// Flows are spread by the device when it can look at labels (RSS), else each worker hands frames
/// to the one that has their flow. There is memory of its own for each thread.
class EthernetDevice {
  public:
    /// Probes the device, unless it was, and starts it. Throws OvixAgent::CardError.
    explicit EthernetDevice(const OvixAgent::CardOptions& options);
    EthernetDevice(const EthernetDevice&) = delete;
    EthernetDevice& operator=(const EthernetDevice&) = delete;
    ~EthernetDevice();

    std::uint16_t port() const noexcept { return port_; }
    std::uint32_t workers() const noexcept { return workers_; }
    Lumo::EthAddr mac() const noexcept { return mac_; }
    std::uint32_t mtu() const noexcept { return mtu_; }
    bool isLinkUp() const;
    /// Frames that have come while there was no room for them.
    std::uint64_t missed() const;

    std::uint16_t receiveQueues() const noexcept { return receiveQueues_; }
    /// By transmit queue, whose number is that of the thread.
    rte_mempool* pool(std::size_t thread) const noexcept { return pools_[thread].get(); }
    /// Frames that others have received for the worker; null when the device spreads flows itself.
    rte_ring* handedTo(std::size_t worker) const noexcept {
        return rings_.empty() ? nullptr : rings_[worker].get();
    }
    /// Whether the device tells flows of IP packets without labels apart.
    bool spreadsIp() const noexcept { return spreadsIp_; }

  private:
    struct Release {
        void operator()(rte_mempool* pool) const noexcept;
        void operator()(rte_ring* ring) const noexcept;
    };

    void start(const OvixAgent::CardOptions& options);
    int configure(std::uint32_t mtu);
    void takeMtu(std::uint32_t asked, int configured);
    void takeMac(const Lumo::EthAddr& asked);
    void makePools(std::size_t cards);
    void makeRings();
    int setUpQueues();
    void close();

    std::string name_;
    std::uint16_t port_ = 0;
    std::uint32_t workers_;
    Lumo::EthAddr mac_{};
    std::uint32_t mtu_ = 0;
    std::uint16_t receiveQueues_ = 1;
    bool spreadsLabels_ = true;
    bool spreadsIp_ = false;
    std::vector<std::unique_ptr<rte_mempool, Release>> pools_;
    std::vector<std::unique_ptr<rte_ring, Release>> rings_;
};

} // namespace OvixDpdk
