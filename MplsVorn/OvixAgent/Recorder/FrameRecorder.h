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

/// A frame that was punted, dropped or handed on, as it came in: three cache lines.
struct alignas(64) RecordedFrame {
    static constexpr std::size_t mostBytes = 128;

    std::array<std::uint8_t, mostBytes> head; ///< its first `size` bytes
    CaptureTime time;
    std::uint64_t sequence;   ///< among all that were recorded, from 1
    std::uint64_t generation; ///< of the label tables
    std::uint32_t length;     ///< on the wire
    PortIndex port;           ///< that it was for: a sub-interface, or the one it came in at
    PortIndex viaPort;
    Lumo::IpGenAddr viaNexthop; ///< only with a port, or when it is of a family
    std::uint8_t size;

    Wire::Bytes bytes() const noexcept { return {head.data(), size}; }
    RecordedVia via() const noexcept { return {viaPort, viaNexthop}; }
};
static_assert(sizeof(RecordedFrame) == 192);

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
    class Log {
      public:
        explicit Log(const Fate& fate, std::uint64_t hashOfReason = 0)
            : kind(fate.kind), reason(fate.reason), hash(hashOfReason) {}
        Log(const Log&) = delete;
        Log& operator=(const Log&) = delete;

        std::uint64_t frames() const noexcept { return seen() + absorbed_; }
        /// Frames of each port; ports behind its end have none. Those that this router has made, as
        /// an answer to what came in there, are among them.
        std::vector<std::uint64_t> byPort() const;
        /// The latter.
        std::uint64_t ownAt(PortIndex port) const noexcept {
            return port < ownByPort_.size() ? ownByPort_[port] : 0;
        }
        /// The labels met most; of a flood those that come most often, with estimates.
        std::vector<Labels::Entry> topLabels(std::int64_t second) const;

        /// The frames that are kept, oldest first: the first one, and the last.
        std::size_t kept() const noexcept;
        const RecordedFrame& keptAt(std::size_t index) const noexcept;
        /// The same by place, which a frame keeps until it is overwritten: the first one, then the
        /// last. Null: the place is free.
        const RecordedFrame* at(std::size_t place) const noexcept;
        static constexpr std::size_t places = framesOfReason + 1;

        const FateKind kind;
        const std::string reason;
        const std::uint64_t hash; ///< of the reason

      private:
        friend class FrameRecorder;
        /// Those that had a place here.
        std::uint64_t seen() const noexcept {
            return wrapped_ + static_cast<std::uint64_t>(next_ - last_.data());
        }
        void absorbCounts(const Log& other, std::uint64_t taken);
        void clear() noexcept;
        void wrap(std::uint64_t random) noexcept;
        void countPort() noexcept;
        void portIs(PortIndex port);
        void countLabelAt(std::size_t place, std::uint32_t times, Labels& in) const noexcept;

        std::array<RecordedFrame, framesOfReason> last_;
        RecordedFrame* next_ = last_.data();
        std::uint64_t wrapped_ = 0;  ///< frames before the first place was used last
        std::uint64_t absorbed_ = 0; ///< of another recorder, which had no place for them any more
        PortIndex port_ = 0;         ///< of the last frames: those from number `portFrom_` on
        std::uint64_t portFrom_ = 0;
        std::vector<std::uint64_t> byPort_ = {0};
        std::vector<std::uint64_t> ownByPort_;
        RecordedFrame first_; ///< once it is none of the last any more
        // Of frames whose places have been used again since.
        Labels labels_;
        std::uint32_t inSecond_ = 0;
        std::int64_t second_ = 0;
    };

    /// `hash` tells reasons apart.
    Log& logOf(const Fate& fate, std::uint64_t hash);

    /// Records a frame as it came in; `port` is that which it was for.
    [[gnu::always_inline]] void record(Log& log, const WritableFrame& frame, PortIndex port) {
        if (isPaused_) [[unlikely]] {
            return;
        }
        RecordedFrame& slot = begin(log, port);
        slot.viaPort = RecordedVia::noPort;
        slot.viaNexthop = {};
        std::memcpy(&slot.time, &frame.time, sizeof frame.time);
        slot.length = frame.originalLength;
        copyHead(slot, frame.bytes, frame.size); // last, since bytes may be anything's
    }
    /// The same of any frame.
    void record(Log& log, const Frame& frame, const RecordedVia& via);

    /// Takes over what another has recorded, which starts over.
    void absorb(FrameRecorder& other);

    /// While paused, nothing is recorded.
    void isPausedIs(bool paused) noexcept { isPaused_ = paused; }
    /// Of the label tables, from the next frame on.
    void generationIs(std::uint64_t generation) noexcept { generation_ = generation; }

    std::uint64_t generation() const noexcept { return generation_; }

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
        if (log.next_ == log.last_.data() + framesOfReason) [[unlikely]] {
            wrap(log);
        }
        if (port != log.port_) [[unlikely]] {
            log.portIs(port);
        }
        RecordedFrame& slot = *log.next_++;
        slot.sequence = ++sequence_;
        slot.generation = generation_;
        slot.port = port;
        return slot;
    }
    [[gnu::noinline]] void wrap(Log& log) noexcept {
        random_ = random_ * 6364136223846793005 + 1442695040888963407;
        log.wrap(random_ >> 33U);
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
