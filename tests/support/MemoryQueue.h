#pragma once

#include <functional>
#include <string>
#include <utility>

#include "Live/ports/LivePort.h"

namespace TestSupport {

/// A queue in memory: hands out the bursts that it is given, and keeps nothing of what leaves, or
/// passes it on.
class MemoryQueue : public OvixAgent::LivePort {
  public:
    using Burst = std::span<OvixAgent::WritableFrame>;

    /// `next` has the next burst, or an empty one; `out`, which may be null, takes what leaves.
    explicit MemoryQueue(std::function<Burst()> next = {}, OvixAgent::TransmitPort* out = nullptr)
        : next_(std::move(next)), out_(out) {}

    const std::string& name() const noexcept override { return name_; }
    bool isOpen() const noexcept override { return true; }
    bool reopen() override { return true; }
    const std::string& problem() const noexcept override { return none_; }
    int descriptor() const noexcept override { return -1; }
    std::size_t receive(const OvixAgent::BurstVisitor& visitor, std::size_t) override {
        const Burst burst = next_ ? next_() : Burst();
        if (!burst.empty()) {
            visitor(burst);
        }
        return burst.size();
    }
    void transmit(const OvixAgent::Frame& frame) override {
        ++sent_;
        if (out_ != nullptr) {
            out_->transmit(frame);
        }
    }
    void transmitBurst(std::span<const OvixAgent::Frame> frames) override {
        sent_ += frames.size();
        if (out_ != nullptr) {
            out_->transmitBurst(frames);
        }
    }
    void flush() override {}
    const OvixAgent::LiveCounts& counts() override { return counts_; }
    std::uint64_t sent() const noexcept { return sent_; }

  private:
    std::function<Burst()> next_;
    OvixAgent::TransmitPort* out_;
    std::uint64_t sent_ = 0;
    std::string name_ = "queue";
    std::string none_;
    OvixAgent::LiveCounts counts_;
};

} // namespace TestSupport
