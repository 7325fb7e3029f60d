#pragma once

#include <array>
#include <cstdint>
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
    std::uint8_t standsFor; ///< itself, and those before it that were passed over

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
/// port, and the labels met most. The memory of a reason is taken with its first frame. In a second
/// with many frames of a reason, only the first ones and then one in 190 or so are kept, so that a
/// flood costs little; that one stands for those before it. All are counted.
class FrameRecorder {
  public:
    static constexpr std::size_t framesOfReason = 64;
    /// Of a reason, as many frames of each second are all kept.
    static constexpr std::uint32_t allOfSecond = 1024;
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
        /// Whether the next frame is not to be kept, and comes in where the last one did; it is
        /// then counted.
        [[gnu::always_inline]] bool passesNext(std::int64_t second, PortIndex port) noexcept {
            if (left_ == 0 || second != second_ || port != port_) {
                return false;
            }
            --left_;
            return true;
        }
        /// The same wherever it comes in.
        bool passesOver(std::int64_t second, PortIndex port) {
            if (left_ > 0 && second == second_ && port != port_) {
                portIs(port);
            }
            return passesNext(second, port);
        }
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
        std::uint64_t placed() const noexcept {
            return wrapped_ + static_cast<std::uint64_t>(next_ - last_.data());
        }
        /// And those that were passed over.
        std::uint64_t seen() const noexcept { return placed() + passed_ + (gap_ - left_); }
        void absorbCounts(const Log& other, std::uint64_t taken);
        void clear() noexcept;
        RecordedFrame& place(PortIndex port);
        std::uint32_t endGap() noexcept;
        void countOfSecond(std::int64_t second) noexcept;
        void wrap() noexcept;
        void countPort() noexcept;
        [[gnu::noinline]] void portIs(PortIndex port);
        void countLabelAt(std::size_t place, Labels& in) const noexcept;

        std::array<RecordedFrame, framesOfReason> last_;
        RecordedFrame* next_ = last_.data();
        std::uint64_t wrapped_ = 0;  ///< frames before the first place was used last
        std::uint64_t passed_ = 0;   ///< over, before the last gap
        std::uint64_t absorbed_ = 0; ///< of another recorder, which had no place for them any more
        std::int64_t second_ = 0;
        std::uint32_t inSecond_ = 0; ///< frames that were kept
        std::uint32_t gap_ = 0;      ///< frames to be passed over before the next one,
        std::uint32_t left_ = 0;     ///< and how many of them have not come yet
        PortIndex port_ = 0;         ///< of the last frames: those from number `portFrom_` on
        std::uint64_t portFrom_ = 0;
        std::vector<std::uint64_t> byPort_ = {0};
        std::vector<std::uint64_t> ownByPort_;
        RecordedFrame first_; ///< once it is none of the last any more
        // Of frames whose places have been used again since.
        Labels labels_;
        std::uint64_t random_ = 0x9e3779b97f4a7c15;
    };

    /// `hash` tells reasons apart.
    Log& logOf(const Fate& fate, std::uint64_t hash);

    /// Whether the next frame of a flood needs no more than to be counted, which is done then.
    [[gnu::always_inline]] bool passesNext(Log& log, std::int64_t second, PortIndex port) noexcept {
        return !isPaused_ && log.passesNext(second, port);
    }
    /// Records a frame as it came in; `port` is that which it was for.
    void record(Log& log, const WritableFrame& frame, PortIndex port) {
        if (!isPaused_ && !log.passesOver(frame.time.seconds, port)) {
            keep(log, frame, port);
        }
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
    RecordedFrame& begin(Log& log, const CaptureTime& time, PortIndex port);
    [[gnu::noinline]] void keep(Log& log, const WritableFrame& frame, PortIndex port);

    std::vector<std::unique_ptr<Log>> logs_;
    std::vector<std::pair<std::uint64_t, Log*>> byHash_;
    std::size_t valued_ = 0; ///< of them
    Log* others_ = nullptr;  ///< that further reasons share
    Neighbours unresolved_;
    std::uint64_t sequence_ = 0;
    std::uint64_t generation_ = 0;
    bool isPaused_ = false;
};

} // namespace OvixAgent
