#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <utility>

namespace OvixAgent {

/// What one thread sets now and then and others take over. They compare a number, which is written
/// only when the value changes.
template <typename Value>
class Handover {
  public:
    std::uint32_t version() const noexcept { return version_.load(std::memory_order_acquire); }

    void valueIs(Value value) {
        const std::lock_guard lock(mutex_);
        value_ = std::move(value);
        version_.store(version_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
    /// The value, and in `version` its number.
    Value value(std::uint32_t& version) const {
        const std::lock_guard lock(mutex_);
        version = version_.load(std::memory_order_relaxed);
        return value_;
    }

  private:
    mutable std::mutex mutex_;
    std::atomic<std::uint32_t> version_{0};
    Value value_{};
};

} // namespace OvixAgent
