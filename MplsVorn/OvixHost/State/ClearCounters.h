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
class ClearCountersSmBase : public Tessel::Counted, public Tessel::Subscriber {
  public:
    explicit ClearCountersSmBase(Ptr<ClearCountersRequests> requests)
        : requests_(std::move(requests)) {}
    ~ClearCountersSmBase() override { hasNotificationActiveIs(false); }

    const Ptr<ClearCountersRequests>& requests() const noexcept { return requests_; }

    /// Switches the reaction to requests on or off; without a queue there is nothing to hear.
    void hasNotificationActiveIs(bool active);
    bool hasNotificationActive() const noexcept { return active_; }

    /// While the owner is being torn down nothing is reacted to.
    virtual void zelDoZombieReactors(bool zombie) noexcept { zombie_ = zombie; }

    void attributeChanged(const Tessel::Entity& publisher, Tessel::AttrId attribute,
                          std::uint64_t key) override;

  protected:
    virtual void clearAllCounters() = 0;

  private:
    Ptr<ClearCountersRequests> requests_;
    bool active_ = false;
    bool zombie_ = false;
};

} // namespace Counter
