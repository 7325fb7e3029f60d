#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/if_packet.h>
#include <span>

#include "Live/ports/SegmentedFrame.h"
#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// Which frames a port receives. Frames addressed to other stations, which an interface in
/// promiscuous mode passes, are received with `everything` only.
enum class PacketIntake : std::uint8_t {
    labelled,      ///< MPLS, and frames with a tag beyond the outermost
    labelledAndIp, ///< also IPv4 and IPv6 addressed to this host's MAC
    everything,    ///< for attachment circuits
};

/// A frame in the receive ring with the kernel's metadata, which holds the frame's outermost tag.
/// The four bytes before the frame may be overwritten.
struct RingFrame {
    std::span<std::uint8_t> bytes;
    const tpacket3_hdr* header = nullptr;
    OffloadedWork offloaded;
};

/// A packet socket with its receive ring (TPACKET_V3), bound to one interface. The kernel fills
/// blocks of frames and releases a block when it is full, or a millisecond after its first frame.
class PacketRing {
  public:
    /// Throws std::system_error, whose text names the step that failed.
    PacketRing(unsigned int interfaceIndex, PacketIntake intake);
    PacketRing(const PacketRing&) = delete;
    PacketRing& operator=(const PacketRing&) = delete;
    ~PacketRing();

    int descriptor() const noexcept { return socket_.value(); }

    /// The next frame, valid until the following call; false when there is none now. A block is
    /// released to the kernel by the first call after its last frame.
    bool next(RingFrame& frame) noexcept;

    /// Stops receiving new frames.
    void stopIntake() noexcept;

    /// The number of frames that the kernel has dropped since the last call.
    std::uint64_t takeDrops() noexcept;
    /// Clears and returns the pending error of the socket; 0 when there is none.
    int takeError() noexcept;

  private:
    tpacket_block_desc* block(std::uint32_t index) const noexcept;
    bool takeBlock() noexcept;
    void releaseBlock() noexcept;
    void map();

    Posix::FileDescriptor socket_;
    std::uint8_t* memory_ = nullptr;
    std::uint32_t current_ = 0; ///< the block being read, or to be read next
    bool isHeld_ = false;       ///< whether that block is released by the kernel
    std::uint32_t left_ = 0;    ///< frames of it to be read
    std::uint8_t* next_ = nullptr;
};

} // namespace OvixAgent
