#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "Live/ports/Card.h"

struct rte_mbuf;
struct rte_mempool;

namespace OvixDpdk {

/// An Ethernet device of DPDK with one queue each way, promiscuous, without offloads: frames come
/// and go as they are on the wire.
class EthernetCard final : public OvixAgent::Card {
  public:
    /// Probes the device, unless it was, and starts it. Throws OvixAgent::CardError.
    explicit EthernetCard(const OvixAgent::CardOptions& options);
    ~EthernetCard() override;

    Lumo::EthAddr mac() const override { return mac_; }
    std::uint32_t mtu() const override { return mtu_; }
    bool isLinkUp() override;
    std::size_t receive(std::span<OvixAgent::WritableFrame> room) override;
    bool queue(std::span<const std::uint8_t> bytes) override;
    std::size_t queueLent(std::span<const OvixAgent::Frame> frames) override;
    Sent flush() override;
    std::uint64_t missed() override;

  private:
    static constexpr std::size_t most = OvixAgent::burstFrames;

    void makeBuffers(std::size_t cards);
    void start(const OvixAgent::CardOptions& options);
    void takeMac(const Lumo::EthAddr& asked);
    void giveBack();
    rte_mbuf* takeLent(std::span<const std::uint8_t> bytes);
    rte_mbuf* copyOf(std::span<const std::uint8_t> bytes);
    void append(rte_mbuf* buffer);

    std::string device_;
    std::uint16_t port_ = 0;
    Lumo::EthAddr mac_{};
    std::uint32_t mtu_ = 0;
    rte_mempool* pool_ = nullptr;
    std::array<rte_mbuf*, most> lent_{}; ///< null once it was taken to be sent
    std::size_t lentCount_ = 0;
    std::size_t nextLent_ = 0; ///< the one behind that taken last, since frames leave in order
    unsigned int strangers_ = 0;
    std::array<rte_mbuf*, most> queued_{};
    std::size_t queuedCount_ = 0;
    Sent since_;              ///< what was sent when the queue was full
    std::uint64_t cutUp_ = 0; ///< frames in several buffers, larger than one
};

} // namespace OvixDpdk
