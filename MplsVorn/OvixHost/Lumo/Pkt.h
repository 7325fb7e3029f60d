#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"

namespace Lumo {

class PktManager;

/// A packet buffer: bytes with room in front of them, so that labels are pushed without moving
/// the payload. Buffers come from the packet manager's pool and go back to it.
///
///     |<- headroom() ->|<--- bytes() --->|<- tailroom ->|
///
/// Fresh data starts on a cache line, so that the smallest frames take up one.
class Pkt final : public Tessel::Counted, public Tessel::Slabbed<Pkt> {
  public:
    using Manager = PktManager;

    static constexpr std::size_t defaultHeadroom = 256;
    /// The longest frame a packet holds.
    static constexpr std::size_t maxBytes = 65535;

    explicit Pkt(PktManager& manager) noexcept : manager_(&manager) {}
    ~Pkt() override;

    /// The number of bytes in the packet.
    std::size_t bytes() const noexcept { return length_; }
    std::size_t headroom() const noexcept { return front_; }

    std::span<const std::uint8_t> data() const noexcept { return {buffer_ + front_, length_}; }
    std::span<std::uint8_t> writableData() noexcept { return {buffer_ + front_, length_}; }

    /// The bytes from `offset` on; empty when the packet is shorter.
    std::span<const std::uint8_t> offsetFront(std::size_t offset) const noexcept {
        return offset <= length_ ? data().subspan(offset) : std::span<const std::uint8_t>();
    }
    std::size_t offsetBytes(std::size_t offset) const noexcept {
        return offset <= length_ ? length_ - offset : 0;
    }

    /// Gives the packet fresh data of `size` bytes (their content is not set) behind the default
    /// headroom, and returns them. More than `maxBytes` throws RangeError.
    std::span<std::uint8_t> newSharedHeadData(std::size_t size);

    /// Drops `count` bytes from the front; false (nothing done) when there are not that many.
    bool popFront(std::size_t count) noexcept {
        if (count > length_) {
            return false;
        }
        front_ += static_cast<std::uint32_t>(count);
        length_ -= static_cast<std::uint32_t>(count);
        return true;
    }

    /// Drops what is beyond the first `count` bytes.
    void truncate(std::size_t count) noexcept {
        if (count < length_) {
            length_ = static_cast<std::uint32_t>(count);
        }
    }

    /// Adds `count` bytes in front and returns them, moving to another buffer when the headroom is
    /// too small. Empty (nothing done) when the packet would exceed `maxBytes`.
    std::span<std::uint8_t> pushFront(std::size_t count);

  private:
    void move(std::size_t headroom);

    PktManager* manager_;
    std::uint8_t* buffer_ = nullptr;
    std::uint32_t capacity_ = 0;
    std::uint32_t front_ = 0;
    std::uint32_t length_ = 0;
};

/// Makes packets and pools their buffers by size class. Used by one packet thread at a time; it
/// must outlive its packets.
class PktManager : public Tessel::Counted {
  public:
    PktManager() = default;
    ~PktManager() override;

    /// An empty packet of this pool.
    Ptr<Pkt> newPkt();

    /// A packet holding a copy of `bytes`. More than Pkt::maxBytes throws RangeError.
    Ptr<Pkt> newPkt(std::span<const std::uint8_t> bytes);

    /// How often a buffer had to come from the heap, for metrics and tests.
    std::uint64_t buffersFromHeap() const noexcept { return buffersFromHeap_; }

  private:
    friend class Pkt;

    struct FreeBuffer {
        FreeBuffer* next;
    };
    static constexpr std::size_t sizeClasses = 3;

    /// `atLeast` is at most Pkt::maxBytes with the default headroom.
    std::uint8_t* takeBuffer(std::size_t atLeast, std::uint32_t& capacity);
    void giveBuffer(std::uint8_t* buffer, std::uint32_t capacity) noexcept;

    FreeBuffer* free_[sizeClasses] = {};
    std::uint64_t buffersFromHeap_ = 0;
};

/// The process-wide packet manager.
Ptr<PktManager> globalPktManager();

} // namespace Lumo

extern template class Tessel::Slabbed<Lumo::Pkt>;
