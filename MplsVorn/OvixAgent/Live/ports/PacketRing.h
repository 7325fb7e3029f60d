#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/if_packet.h>
#include <span>

#include "Live/ports/PacketFilter.h"
#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// What a sender on this host has left to the network hardware: the header that the kernel puts
/// before a frame, as virtio network devices have it (virtio 1.1 section 5.1.6), in host byte
/// order.
struct OffloadedWork {
    std::uint8_t flags = 0;
    std::uint8_t segmentation = 0; ///< 0: none, the frame is a frame
    std::uint16_t headerLength = 0;
    std::uint16_t segmentSize = 0;
    std::uint16_t checksumStart = 0;
    std::uint16_t checksumOffset = 0;

    bool needsChecksum() const noexcept { return (flags & 1U) != 0; }
};
static_assert(sizeof(OffloadedWork) == 10);

/// A frame as it lies in the receive ring, with what the kernel says about it. The tag that it came
/// with stands beside it; the four bytes before the frame may be written to.
struct RingFrame {
    std::span<std::uint8_t> bytes;
    const tpacket3_hdr* header = nullptr;
    OffloadedWork offloaded;
};

/// A packet socket with its receive ring (TPACKET_V3), bound to one interface. The kernel fills
/// blocks of frames and hands over a block when it is full, or a millisecond after its first frame.
class PacketRing {
  public:
    /// Throws std::system_error, whose text says which step failed.
    PacketRing(unsigned int interfaceIndex, PacketIntake intake);
    PacketRing(const PacketRing&) = delete;
    PacketRing& operator=(const PacketRing&) = delete;
    ~PacketRing();

    int descriptor() const noexcept { return socket_.value(); }

    /// The next frame, good until the following call; false when there is none for now. A block
    /// goes back to the kernel with the first call past its last frame.
    bool next(RingFrame& frame) noexcept;

    /// From now on no frame comes into the ring any more.
    void stopIntake() noexcept;

    /// What the kernel has dropped since the last call.
    std::uint64_t takeDrops() noexcept;
    /// The error pending at the socket, which is cleared by this; 0 when there is none.
    int takeError() noexcept;

  private:
    tpacket_block_desc* block(std::uint32_t index) const noexcept;
    bool takeBlock() noexcept;
    void giveBlockBack() noexcept;
    void map();

    Posix::FileDescriptor socket_;
    std::uint8_t* memory_ = nullptr;
    std::uint32_t current_ = 0; ///< the block that is being read, or is to be read next
    bool isHeld_ = false;       ///< whether that block is ours
    std::uint32_t left_ = 0;    ///< frames of it that are still to be read
    std::uint8_t* next_ = nullptr;
};

} // namespace OvixAgent
