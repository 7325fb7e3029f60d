#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Forwarding/FrameAccounts.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"
#include "State/OvixLfibCounterCollection.h"

namespace OvixAgent {

/// Has a frame forwarded twice and compares what becomes of it: which frames leave by which ports,
/// and all that is counted. The first time is a trial, of which nothing is sent and no count stays.
class SelfCheck {
  public:
    /// Everything must outlive it.
    SelfCheck(ForwardingTables& tables, FrameAccounts& accounts) noexcept
        : tables_(&tables), accounts_(&accounts) {}

    /// Forwards a copy of the frame; false when it is none of those that this is done for.
    using Trial = std::function<bool(WritableFrame& copy)>;
    /// Forwards the frame itself.
    using Definition = std::function<void()>;
    enum class Result : std::uint8_t { same, different, untried };
    /// Between the two and afterwards everything counted must be visible. `labels` has the labels'
    /// counters and may be empty.
    Result run(const WritableFrame& frame, const Trial& trial, const Definition& definition,
               const Ptr<Counter::OvixLfibCounterCollection>& labels);

    /// What the last frame was that differed: its port, length and bytes, and what left, for a log.
    const std::string& difference() const noexcept { return difference_; }

  private:
    struct Sent {
        PortIndex port = 0;
        Frame frame;
        std::vector<std::uint8_t> bytes;
        bool operator==(const Sent& other) const;
    };
    /// Notes what leaves by a port, and lets it leave unless this is a trial.
    class Watch;
    class Watches;

    struct LabelCount {
        std::uint32_t label = 0;
        bool exists = false;
        Counter::PktCounter counter;
        bool operator==(const LabelCount& other) const;
    };
    struct Counts {
        FrameAccounts::Counts accounts;
        std::vector<Traffic> traffic; ///< of ports and pseudowires
        std::vector<LabelCount> labels;
        bool operator==(const Counts&) const = default;
    };
    /// What becomes of a frame.
    struct Outcome {
        std::vector<Sent> sent;
        Counts counts;
        bool operator==(const Outcome&) const = default;
    };

    WritableFrame copyOf(const WritableFrame& frame);
    void findLabels(Wire::Bytes frame);
    Counts count(const Counter::OvixLfibCounterCollection* labels) const;
    void setBack(const Counts& counts, Counter::OvixLfibCounterCollection* labels);
    void describe(const WritableFrame& frame, const Outcome& tried, const Outcome& right);

    ForwardingTables* tables_;
    FrameAccounts* accounts_;
    std::vector<std::uint8_t> memory_;  ///< of the copy
    std::vector<std::uint32_t> labels_; ///< of the frame
    std::string difference_;
};

} // namespace OvixAgent
