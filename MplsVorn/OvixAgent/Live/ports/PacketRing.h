#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "Live/ports/FanoutGroup.h"
#include "Live/ports/PacketIntake.h"
#include "Live/ports/SegmentedFrame.h"
#include "Posix/FileDescriptor.h"
#include "State/Frame.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

/// A received frame, with what the kernel says of it beside its bytes, which may be changed.
struct RingFrame {
    std::span<std::uint8_t> bytes;
    std::uint32_t headroom = 0; ///< free bytes in front, at least `frameHeadroom` and a tag
    std::uint32_t length = 0;   ///< more than the bytes when it is longer than the ring allows
    CaptureTime time;
    std::optional<Wire::Tag> removedTag; ///< the outermost, which is not in the bytes
    OffloadedWork offloaded;
    bool isInSlot = false; ///< else in the memory that the next frame may need, too
};

/// What a ring has of an interface's flows: all, or with the others of a group.
struct RingShare {
    std::shared_ptr<FanoutGroup> group;
    std::uint32_t rings = 1;
};

/// A packet socket with its receive ring (TPACKET_V2), bound to one interface. Each frame has a
/// slot of the ring and can be read as soon as the kernel has copied it there. Those that are too
/// long for a slot, as merged ones are, wait in the socket's queue.
class PacketRing {
  public:
    /// Throws std::system_error, whose text names the step that failed.
    PacketRing(unsigned int interfaceIndex, PacketIntake intake, RingShare share = {});
    PacketRing(const PacketRing&) = delete;
    PacketRing& operator=(const PacketRing&) = delete;
    ~PacketRing();

    int descriptor() const noexcept { return socket_.value(); }

    /// The next frame; false when there is none now. It is valid until `release()`, but if it is
    /// not in a slot, until the following call.
    bool next(RingFrame& frame) noexcept;
    /// Gives the slots of all frames so far back to the kernel.
    void release() noexcept;

    /// Frames that the kernel keeps until they are read, long ones apart.
    std::size_t frames() const noexcept { return slots_; }

    /// Which frames are received from now on. Throws std::system_error.
    void intakeIs(PacketIntake intake);
    /// Stops receiving new frames.
    void stopIntake() noexcept { acceptNothing(socket_.value()); }

    /// The number of frames lost for want of room since the last call.
    std::uint64_t takeDrops() noexcept;
    /// Clears and returns the pending error of the socket; 0 when there is none.
    int takeError() noexcept;

  private:
    std::uint8_t* slot(std::uint32_t index) const noexcept;
    std::uint32_t behind(std::uint32_t count) const noexcept;
    bool look() noexcept;
    bool read(std::uint8_t* slot, RingFrame& frame) noexcept;
    std::span<std::uint8_t> fetchLong() noexcept;
    void map();
    std::size_t bytes() const noexcept;

    RingShare share_;
    std::uint32_t slots_;
    Posix::FileDescriptor socket_;
    std::uint8_t* memory_ = nullptr;
    std::uint32_t next_ = 0;  ///< slot to be read next
    std::uint32_t ready_ = 0; ///< slots from there on that are known to hold frames
    std::uint32_t held_ = 0;  ///< slots before it that have been read and not released
    std::uint64_t lost_ = 0;  ///< long frames that the queue had no room for, not yet taken
    std::vector<std::uint8_t> longFrame_;
};

} // namespace OvixAgent
