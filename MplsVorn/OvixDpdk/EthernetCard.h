#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "EthernetDevice.h"
#include "Live/ports/Card.h"

struct rte_mbuf;

namespace OvixDpdk {

/// What one thread has of an Ethernet device.
class EthernetCard final : public OvixAgent::Card {
  public:
    /// That of the thread which has the device, and receives unless there are workers.
    explicit EthernetCard(std::shared_ptr<EthernetDevice> device);
    EthernetCard(std::shared_ptr<EthernetDevice> device, std::uint32_t worker);
    ~EthernetCard() override;

    Lumo::EthAddr mac() const override { return device_->mac(); }
    std::uint32_t mtu() const override { return device_->mtu(); }
    bool isLinkUp() override { return device_->isLinkUp(); }
    std::size_t receive(std::span<OvixAgent::WritableFrame> room) override;
    bool queue(std::span<const std::uint8_t> bytes) override;
    std::size_t queueLent(std::span<const OvixAgent::Frame> frames) override;
    Sent flush() override;
    std::uint64_t missed() override;
    std::unique_ptr<Card> forWorker(std::uint32_t worker) override;

  private:
    static constexpr std::size_t most = OvixAgent::burstFrames;
    static constexpr std::uint32_t noWorker = UINT32_MAX;
    using Buffers = std::span<rte_mbuf*>;

    std::size_t take(Buffers room);
    std::size_t takeFrom(std::uint16_t queue, Buffers room);
    std::size_t keepOwn(Buffers came);
    void hand(std::uint32_t worker, Buffers frames);
    std::uint32_t workerOf(const rte_mbuf& frame) const noexcept;
    void giveBack();
    rte_mbuf* takeLent(std::span<const std::uint8_t> bytes);
    rte_mbuf* copyOf(std::span<const std::uint8_t> bytes);
    void append(rte_mbuf* buffer);

    std::shared_ptr<EthernetDevice> device_;
    std::uint32_t worker_ = noWorker;
    std::uint16_t firstQueue_ = 0; ///< to receive from, and every `queueStep_` behind it
    std::uint16_t queueStep_ = 1;
    std::uint16_t sendQueue_ = 0;
    std::array<rte_mbuf*, most> lent_{}; ///< null once it was taken to be sent
    std::size_t lentCount_ = 0;
    std::size_t nextLent_ = 0; ///< the one behind that taken last, since frames leave in order
    unsigned int strangers_ = 0;
    std::array<rte_mbuf*, most> queued_{};
    std::size_t queuedCount_ = 0;
    Sent since_;             ///< what was sent when the queue was full
    std::uint64_t lost_ = 0; ///< frames larger than a buffer, or for workers without room
};

} // namespace OvixDpdk
