#pragma once

#include <atomic>
#include <cassert>
#include <cstddef>
#include <deque>
#include <functional>
#include <thread>
#include <utility>

namespace OvixAgent {

/// Keeps threads from forwarding while the packet thread changes what they forward by. A thread
/// that forwards writes a cache line of its own only, and reads one that changes when the gate
/// does.
class ForwardingGate {
  public:
    ForwardingGate() = default;
    ForwardingGate(const ForwardingGate&) = delete;
    ForwardingGate& operator=(const ForwardingGate&) = delete;

    /// Of one thread that forwards.
    class alignas(64) Place {
      public:
        explicit Place(const ForwardingGate& gate) noexcept : gate_(&gate) {}
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

        /// Waits until the gate is open; to be called before forwarding.
        void enter() noexcept {
            for (;;) {
                isInside_.store(true);
                if (!gate_->isClosed_.load()) {
                    return;
                }
                leave();
                gate_->awaitOpening();
            }
        }
        void leave() noexcept { isInside_.store(false, std::memory_order_release); }
        /// Whether the gate is to be closed: to be looked at between bursts.
        bool isToLeave() const noexcept { return gate_->isClosed_.load(std::memory_order_relaxed); }

      private:
        friend class ForwardingGate;
        const ForwardingGate* gate_;
        std::atomic<bool> isInside_{false};
    };

    /// A place for a thread that has not started; it stays until the gate goes. Not while the gate
    /// is closed.
    Place& addPlace() {
        assert(depth_ == 0);
        return places_.emplace_back(*this);
    }

    /// The gate is closed, to the packet thread, as long as one of these exists.
    class Closed {
      public:
        explicit Closed(ForwardingGate& gate) noexcept : gate_(&gate) { gate_->close(); }
        Closed(const Closed&) = delete;
        Closed& operator=(const Closed&) = delete;
        ~Closed() { gate_->open(); }

      private:
        ForwardingGate* gate_;
    };

    /// What is called each time before the gate opens again: what is changed and what is made of it
    /// go together.
    void beforeOpeningIs(std::function<void()> call) { beforeOpening_ = std::move(call); }

    /// How often the gate was closed.
    std::uint64_t closings() const noexcept { return closings_; }

  private:
    /// The gate mostly opens sooner than a thread falls asleep and is woken.
    static constexpr int yields = 200;

    void awaitOpening() const noexcept {
        for (int tries = 0; tries < yields; ++tries) {
            if (!isClosed_.load()) {
                return;
            }
            std::this_thread::yield();
        }
        isClosed_.wait(true);
    }
    void close() noexcept {
        if (depth_++ > 0 || places_.empty()) {
            return;
        }
        ++closings_;
        isClosed_.store(true);
        for (const Place& place : places_) {
            // A thread that was preempted inside needs the processor.
            for (int tries = 0; place.isInside_.load(); ++tries) {
                constexpr int beforeYielding = 200;
                if (tries > beforeYielding) {
                    std::this_thread::yield();
                }
            }
        }
    }
    void open() noexcept {
        assert(depth_ > 0);
        if (depth_ == 1 && !places_.empty() && beforeOpening_) {
            beforeOpening_();
        }
        if (--depth_ == 0 && !places_.empty()) {
            isClosed_.store(false);
            isClosed_.notify_all();
        }
    }

    alignas(64) std::atomic<bool> isClosed_{false};
    // The packet thread's own.
    alignas(64) std::deque<Place> places_;
    std::size_t depth_ = 0;
    std::uint64_t closings_ = 0;
    std::function<void()> beforeOpening_;
};

} // namespace OvixAgent
