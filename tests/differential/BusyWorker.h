#pragma once

#include <array>
#include <atomic>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "Live/workers/Worker.h"
#include "MemoryQueue.h"
#include "Script.h"

namespace Differential {

/// A worker in a thread of its own that forwards the frames of a script again and again, into
/// nothing, beside a router that the script changes. What the router does is the same without it,
/// and the thread sanitizer sees what the two share.
class BusyWorker {
  public:
    /// Both must outlive it.
    BusyWorker(OvixAgent::DecidedTables& decided, const Script& script)
        : script_(&script), worker_(decided, -1) {
        worker_.ports().push_back(
            std::make_unique<TestSupport::MemoryQueue>([this] { return next(); }));
        for (OvixAgent::PortIndex i = 0; i < decided.tables->ports.ports().size(); ++i) {
            worker_.portIs(i, sink_);
        }
        thread_ = std::thread([this] { work(); });
    }
    BusyWorker(const BusyWorker&) = delete;
    BusyWorker& operator=(const BusyWorker&) = delete;
    ~BusyWorker() {
        ends_ = true;
        thread_.join();
    }

  private:
    void work() {
        std::vector<OvixAgent::FrameRing*> lanes;
        for (const auto& lane : worker_.lanes().ofPorts) {
            lanes.push_back(lane.get());
        }
        const auto forget = [](const OvixAgent::WritableFrame&) { return true; };
        while (!ends_) {
            worker_.turn();
            takeFrames(std::array{&worker_.lanes().urgent}, lanes, forget, SIZE_MAX);
        }
    }

    /// The frames of the next burst of the script, as they were at first.
    std::span<OvixAgent::WritableFrame> next() {
        burst_.clear();
        for (std::size_t tried = 0; burst_.empty() && tried < script_->steps.size(); ++tried) {
            step_ = (step_ + 1) % script_->steps.size();
            const std::vector<ScriptFrame>& frames = script_->steps[step_].frames;
            for (std::size_t i = 0; i < frames.size(); ++i) {
                place(frames[i], memory_[i]);
            }
        }
        return burst_;
    }
    void place(const ScriptFrame& frame, std::vector<std::uint8_t>& memory) {
        memory.assign(OvixAgent::frameHeadroom, 0);
        memory.insert(memory.end(), frame.bytes.begin(), frame.bytes.end());
        const auto size = static_cast<std::uint32_t>(frame.bytes.size());
        burst_.push_back({.bytes = memory.data() + OvixAgent::frameHeadroom,
                          .size = size,
                          .originalLength = size + frame.snapped,
                          .headroom = OvixAgent::frameHeadroom,
                          .port = frame.port,
                          .time = {}});
    }

    const Script* script_;
    std::size_t step_ = 0;
    std::array<std::vector<std::uint8_t>, OvixAgent::burstFrames> memory_;
    std::vector<OvixAgent::WritableFrame> burst_;
    TestSupport::MemoryQueue sink_;
    OvixAgent::Worker worker_;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

} // namespace Differential
