#include "EthernetCard.h"

#include <algorithm>
#include <cstring>
#include <rte_ethdev.h>
#include <rte_lcore.h>
#include <rte_mbuf.h>
#include <rte_prefetch.h>
#include <rte_ring.h>
#include <utility>

#include "Ovix/packet/FlowHash.h"
#include "Wire/Ethernet.h"

namespace OvixDpdk {

namespace {

/// Bytes that are not lent are looked for in vain this often in each burst.
constexpr unsigned int mostStrangers = 2;

/// Whose frames this thread has; of all cards that it serves, that which received last.
thread_local EthernetCard* lender = nullptr;

/// A worker's thread, which DPDK then keeps buffers for, so that taking one is no atomic operation.
class KnownThread {
  public:
    KnownThread() : isOurs_(rte_lcore_id() == LCORE_ID_ANY && rte_thread_register() == 0) {}
    KnownThread(const KnownThread&) = delete;
    KnownThread& operator=(const KnownThread&) = delete;
    ~KnownThread() {
        if (isOurs_) {
            rte_thread_unregister();
        }
    }

  private:
    bool isOurs_;
};

Wire::Bytes bytesOf(const rte_mbuf& frame) noexcept {
    return {rte_pktmbuf_mtod(&frame, const std::uint8_t*), frame.data_len};
}

bool isPlainIp(Wire::Bytes frame) noexcept {
    const Wire::Ethernet ethernet(frame);
    return ethernet && (ethernet.etherType() == Wire::EtherType::ipv4 ||
                        ethernet.etherType() == Wire::EtherType::ipv6);
}

} // namespace

EthernetCard::EthernetCard(std::shared_ptr<EthernetDevice> device)
    : device_(std::move(device)), firstQueue_(device_->workers() == 0 ? 0 : UINT16_MAX),
      sendQueue_(static_cast<std::uint16_t>(device_->workers())) {}

EthernetCard::EthernetCard(std::shared_ptr<EthernetDevice> device, std::uint32_t worker)
    : device_(std::move(device)), worker_(worker), firstQueue_(static_cast<std::uint16_t>(worker)),
      queueStep_(static_cast<std::uint16_t>(device_->workers())),
      sendQueue_(static_cast<std::uint16_t>(worker)) {}

EthernetCard::~EthernetCard() {
    giveBack();
    flush();
    lender = lender == this ? nullptr : lender;
}

std::unique_ptr<OvixAgent::Card> EthernetCard::forWorker(std::uint32_t worker) {
    return worker < device_->workers() ? std::make_unique<EthernetCard>(device_, worker) : nullptr;
}

void EthernetCard::giveBack() {
    // Null for what was sent, which this leaves out.
    rte_pktmbuf_free_bulk(lent_.data(), static_cast<unsigned int>(std::exchange(lentCount_, 0)));
    nextLent_ = 0;
    strangers_ = 0;
}

std::size_t EthernetCard::receive(std::span<OvixAgent::WritableFrame> room) {
    giveBack();
    lender = this;
    std::array<rte_mbuf*, most> came{};
    const std::size_t count = take({came.data(), std::min(room.size(), most)});
    for (std::size_t i = 0; i < count; ++i) {
        rte_mbuf* const buffer = came[i];
        room[lentCount_] = {.bytes = rte_pktmbuf_mtod(buffer, std::uint8_t*),
                            .size = buffer->data_len,
                            .originalLength = buffer->data_len,
                            .headroom = buffer->data_off,
                            .time = {}};
        lent_[lentCount_++] = buffer;
    }
    return lentCount_;
}

/// What others have received for this worker has half of the room, so that neither waits.
std::size_t EthernetCard::take(Buffers room) {
    std::size_t count = 0;
    if (worker_ != noWorker) {
        thread_local const KnownThread known;
        if (rte_ring* const handed = device_->handedTo(worker_); handed != nullptr) {
            count = rte_ring_sc_dequeue_burst(handed, reinterpret_cast<void**>(room.data()),
                                              static_cast<unsigned int>(room.size() / 2), nullptr);
        }
    }
    for (std::uint32_t queue = firstQueue_; queue < device_->receiveQueues(); queue += queueStep_) {
        count += takeFrom(static_cast<std::uint16_t>(queue), room.subspan(count));
    }
    return count;
}

std::size_t EthernetCard::takeFrom(std::uint16_t queue, Buffers room) {
    const std::size_t came = rte_eth_rx_burst(device_->port(), queue, room.data(),
                                              static_cast<std::uint16_t>(room.size()));
    for (std::size_t i = 0; i < came; ++i) {
        rte_prefetch0(rte_pktmbuf_mtod(room[i], const void*));
    }
    std::size_t whole = 0;
    for (std::size_t i = 0; i < came; ++i) {
        if (room[i]->nb_segs > 1 && rte_pktmbuf_linearize(room[i]) != 0) [[unlikely]] {
            rte_pktmbuf_free(room[i]);
            ++lost_;
            continue;
        }
        room[whole++] = room[i];
    }
    const bool spreads = worker_ != noWorker && device_->handedTo(worker_) != nullptr;
    return spreads ? keepOwn(room.first(whole)) : whole;
}

/// Moves this worker's frames to the front, and gives the others theirs, each in order.
std::size_t EthernetCard::keepOwn(Buffers came) {
    std::array<std::uint32_t, most> workers{};
    std::array<rte_mbuf*, most> others{};
    for (std::size_t i = 0; i < came.size(); ++i) {
        workers[i] = workerOf(*came[i]);
    }
    for (std::uint32_t worker = 0; worker < device_->workers(); ++worker) {
        std::size_t count = 0;
        for (std::size_t i = 0; worker != worker_ && i < came.size(); ++i) {
            if (workers[i] == worker) {
                others[count++] = came[i];
            }
        }
        hand(worker, {others.data(), count});
    }
    std::size_t own = 0;
    for (std::size_t i = 0; i < came.size(); ++i) {
        if (workers[i] == worker_) {
            came[own++] = came[i];
        }
    }
    return own;
}

void EthernetCard::hand(std::uint32_t worker, Buffers frames) {
    const auto count = static_cast<unsigned int>(frames.size());
    const unsigned int handed =
        count == 0 ? 0
                   : rte_ring_mp_enqueue_burst(device_->handedTo(worker),
                                               reinterpret_cast<void* const*>(frames.data()), count,
                                               nullptr);
    rte_pktmbuf_free_bulk(frames.data() + handed, count - handed);
    lost_ += count - handed;
}

std::uint32_t EthernetCard::workerOf(const rte_mbuf& frame) const noexcept {
    const Wire::Bytes bytes = bytesOf(frame);
    return device_->spreadsIp() && isPlainIp(bytes)
               ? worker_
               : Ovix::flowHash(Ovix::PktHdrType::eth, bytes) % device_->workers();
}

bool EthernetCard::queue(std::span<const std::uint8_t> bytes) {
    rte_mbuf* const buffer = copyOf(bytes);
    if (buffer != nullptr) {
        append(buffer);
    }
    return buffer != nullptr;
}

std::size_t EthernetCard::queueLent(std::span<const OvixAgent::Frame> frames) {
    EthernetCard* const from = lender;
    std::size_t queued = 0;
    for (const OvixAgent::Frame& frame : frames) {
        rte_mbuf* buffer = from == nullptr ? nullptr : from->takeLent(frame.bytes);
        buffer = buffer == nullptr ? copyOf(frame.bytes) : buffer;
        if (buffer != nullptr) {
            append(buffer);
            ++queued;
        }
    }
    return queued;
}

/// The buffer that the bytes lie in, made theirs; null when none of those lent does.
rte_mbuf* EthernetCard::takeLent(std::span<const std::uint8_t> bytes) {
    for (std::size_t tried = 0; tried < lentCount_ && strangers_ < mostStrangers; ++tried) {
        const std::size_t at = nextLent_ < lentCount_ ? nextLent_ : 0;
        nextLent_ = at + 1;
        rte_mbuf* const buffer = lent_[at];
        if (buffer == nullptr) {
            continue;
        }
        const auto* const start = static_cast<const std::uint8_t*>(buffer->buf_addr);
        const auto before =
            static_cast<std::size_t>(bytes.data() - start); // far beyond, if not in it
        if (before < buffer->buf_len && bytes.size() <= buffer->buf_len - before) {
            lent_[at] = nullptr;
            buffer->data_off = static_cast<std::uint16_t>(before);
            buffer->data_len = static_cast<std::uint16_t>(bytes.size());
            buffer->pkt_len = buffer->data_len;
            return buffer;
        }
    }
    ++strangers_;
    return nullptr;
}

rte_mbuf* EthernetCard::copyOf(std::span<const std::uint8_t> bytes) {
    rte_mbuf* const buffer = rte_pktmbuf_alloc(device_->pool(sendQueue_));
    char* const room = buffer == nullptr || bytes.size() > UINT16_MAX
                           ? nullptr
                           : rte_pktmbuf_append(buffer, static_cast<std::uint16_t>(bytes.size()));
    if (room == nullptr) {
        rte_pktmbuf_free(buffer);
        return nullptr;
    }
    std::memcpy(room, bytes.data(), bytes.size());
    return buffer;
}

void EthernetCard::append(rte_mbuf* buffer) {
    if (queuedCount_ == most) {
        const Sent sent = flush();
        since_ = {since_.sent + sent.sent, since_.refused + sent.refused};
    }
    queued_[queuedCount_++] = buffer;
}

OvixAgent::Card::Sent EthernetCard::flush() {
    Sent done = std::exchange(since_, {});
    if (queuedCount_ == 0) {
        return done;
    }
    const auto count = static_cast<std::uint16_t>(std::exchange(queuedCount_, 0));
    std::uint16_t sent = 0;
    // A driver may take fewer while its ring is tidied; what is refused twice has no room.
    for (int tries = 0; sent < count && tries < 2; ++tries) {
        sent = static_cast<std::uint16_t>(
            sent + rte_eth_tx_burst(device_->port(), sendQueue_, queued_.data() + sent,
                                    static_cast<std::uint16_t>(count - sent)));
    }
    rte_pktmbuf_free_bulk(queued_.data() + sent, static_cast<unsigned int>(count - sent));
    done.sent += sent;
    done.refused += static_cast<std::size_t>(count - sent);
    return done;
}

std::uint64_t EthernetCard::missed() {
    return lost_ + (worker_ == noWorker ? device_->missed() : 0);
}

} // namespace OvixDpdk
