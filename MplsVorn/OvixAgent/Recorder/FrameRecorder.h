#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Recorder/HeavyHitters.h"
#include "State/Fate.h"
#include "State/Frame.h"
#include "State/PortTable.h"
#include "Wire/View.h"

namespace OvixAgent {

/// Where a frame would have left, as far as that was found.
struct RecordedVia {
    static constexpr PortIndex noPort = ~PortIndex{0};

    PortIndex port = noPort;
    Lumo::IpGenAddr nexthop; ///< of no family: none
    friend bool operator==(const RecordedVia&, const RecordedVia&) = default;
};

/// A frame that was punted, dropped or handed on, as it came in.
struct RecordedFrame {
    static constexpr std::size_t mostBytes = 128;

    std::array<std::uint8_t, mostBytes> head; ///< its first `size` bytes
    CaptureTime time;
    std::uint64_t sequence;   ///< among all that were recorded, from 1
    std::uint64_t generation; ///< of the label tables
    std::uint32_t length;     ///< on the wire
    PortIndex port;           ///< that it was for: a sub-interface, or the one it came in at
    RecordedVia via;
    std::uint8_t size;

    Wire::Bytes bytes() const noexcept { return {head.data(), size}; }
};

/// The outermost label of a frame; unset when it has none.
std::optional<std::uint32_t> topLabel(Wire::Bytes frame) noexcept;

struct HashOfLabel {
    std::uint64_t operator()(std::uint32_t label) const noexcept {
        return (label * std::uint64_t{0x9e3779b97f4a7c15}) >> 40U;
    }
};
struct HashOfVia {
    std::uint64_t operator()(const RecordedVia& via) const noexcept;
};

/// The frames that went nowhere, by the reason for it: the first one, the last 64, how many of each
/// port, and the labels met most. The memory of a reason is taken with its first frame.
class FrameRecorder {
  public:
    static constexpr std::size_t framesOfReason = 64;
    /// Further reasons share a log, and further ones with a value in them.
    static constexpr std::size_t mostReasons = 128;
    static constexpr std::size_t mostWithValues = 64;
    static constexpr std::size_t topKeys = 100;

    using Labels = HeavyHitters<std::uint32_t, HashOfLabel>;
    using Neighbours = HeavyHitters<RecordedVia, HashOfVia>;

    /// Of one reason.
    struct Log {
        FateKind kind = FateKind::dropped;
        std::string reason;
        std::uint64_t frames = 0;
        std::vector<std::uint64_t> byPort; ///< ports behind its end have none
        RecordedFrame first{};             ///< once it is none of the last any more
        std::array<RecordedFrame, framesOfReason> last{};
        Labels labels;

        /// The frames that are kept, oldest first: the first one, and the last.
        std::size_t kept() const noexcept;
        const RecordedFrame& keptAt(std::size_t index) const noexcept;

      private:
        friend class FrameRecorder;
        // In a second with many frames the label of one in 16 is counted, for all since the last.
        std::uint32_t untilLabel = 1;
        std::uint32_t gap = 1;
        std::uint32_t inSecond = 0;
        std::int64_t second = 0;
    };

    /// `hash` tells reasons apart.
    Log& logOf(const Fate& fate, std::uint64_t hash);

    /// Records a frame as it came in; `port` is that which it was for, `label` its outermost.
    [[gnu::always_inline]] void record(Log& log, const WritableFrame& frame, PortIndex port,
                                       std::uint32_t label) {
        if (isPaused_) [[unlikely]] {
            return;
        }
        RecordedFrame& slot = begin(log, port);
        copyHead(slot, frame.bytes, frame.size);
        std::memcpy(&slot.time, &frame.time, sizeof frame.time);
        slot.length = frame.originalLength;
        if (--log.untilLabel == 0) [[unlikely]] {
            countLabel(log, label, frame.time.seconds);
        }
    }
    /// The same of any frame.
    void record(Log& log, const Frame& frame, const RecordedVia& via);

    /// While paused, nothing is recorded.
    void isPausedIs(bool paused) noexcept { isPaused_ = paused; }
    /// Of the label tables, from the next frame on.
    void generationIs(std::uint64_t generation) noexcept { generation_ = generation; }

    const std::vector<std::unique_ptr<Log>>& logs() const noexcept { return logs_; }
    /// The neighbours whose MAC address was not known, by packets that were dropped for it.
    const Neighbours& unresolved() const noexcept { return unresolved_; }
    std::uint64_t sequence() const noexcept { return sequence_; }
    /// Of memory taken, and what that may come to.
    std::size_t memoryBytes() const noexcept { return logs_.size() * sizeof(Log) + sizeof *this; }
    static constexpr std::size_t mostMemoryBytes() noexcept {
        return (mostReasons + 1) * sizeof(Log) + sizeof(FrameRecorder);
    }

  private:
    [[gnu::always_inline]] RecordedFrame& begin(Log& log, PortIndex port) {
        if (log.frames == framesOfReason) [[unlikely]] {
            log.first = log.last.front();
        }
        RecordedFrame& slot = log.last[log.frames++ % framesOfReason];
        slot.sequence = ++sequence_;
        slot.generation = generation_;
        slot.port = port;
        slot.via.port = RecordedVia::noPort;
        if (port >= log.byPort.size()) [[unlikely]] {
            log.byPort.resize(port + std::size_t{1});
        }
        ++log.byPort[port];
        return slot;
    }
    /// In two pieces of fixed size, which may overlap.
    [[gnu::always_inline]] static void copyHead(RecordedFrame& slot, const std::uint8_t* from,
                                                std::size_t size) noexcept {
        constexpr std::size_t half = RecordedFrame::mostBytes / 2;
        std::uint8_t* const to = slot.head.data();
        if (size > half) [[likely]] {
            size = std::min(size, RecordedFrame::mostBytes);
            std::memcpy(to, from, half);
            std::memcpy(to + size - half, from + size - half, half);
        } else if (size >= half / 2) {
            std::memcpy(to, from, half / 2);
            std::memcpy(to + size - half / 2, from + size - half / 2, half / 2);
        } else {
            copyShort(to, from, size);
        }
        slot.size = static_cast<std::uint8_t>(size);
    }
    [[gnu::noinline]] static void copyShort(std::uint8_t* to, const std::uint8_t* from,
                                            std::size_t size) noexcept {
        std::memcpy(to, from, size);
    }
    [[gnu::noinline]] void countLabel(Log& log, std::uint32_t label, std::int64_t second) noexcept;

    std::vector<std::unique_ptr<Log>> logs_;
    std::vector<std::pair<std::uint64_t, Log*>> byHash_;
    std::size_t valued_ = 0; ///< of them
    Log* others_ = nullptr;  ///< that further reasons share
    Neighbours unresolved_;
    std::uint64_t sequence_ = 0;
    std::uint64_t generation_ = 0;
    std::uint64_t random_ = 0x9e3779b97f4a7c15;
    bool isPaused_ = false;
};

} // namespace OvixAgent
