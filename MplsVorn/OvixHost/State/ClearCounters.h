#pragma once

#include <cstdint>

#include "Tessel/Entity.h"

namespace Counter {

/// The queue of requests to clear counters; a request is a change of its one attribute.
class ClearCountersRequests : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "Counter::ClearCountersRequests";
    enum Attr : Tessel::AttrId { requestAttr = 0 };

    ClearCountersRequests() : Entity("clearCounters") {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    /// Asks everybody who keeps counters to clear them.
    void requestClearAll() {
        ++requests_;
        publish(requestAttr);
    }
    std::uint64_t requests() const noexcept { return requests_; }

  private:
    std::uint64_t requests_ = 0;
};

/// Watches the request queue for one keeper of counters.
class ClearCountersSmBase : public Tessel::Reactor {
  public:
    explicit ClearCountersSmBase(Ptr<ClearCountersRequests> requests)
        : Reactor(requests, ClearCountersRequests::requestAttr), requests_(std::move(requests)) {}

    const Ptr<ClearCountersRequests>& requests() const noexcept { return requests_; }

  protected:
    virtual void clearAllCounters() = 0;
    void react(std::uint64_t) override { clearAllCounters(); }

  private:
    Ptr<ClearCountersRequests> requests_;
};

} // namespace Counter
