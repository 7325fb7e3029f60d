#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Tessel/Ptr.h"

namespace Tessel {

class Entity;

/// Identifies an attribute within its entity's type: 0 for the first one declared.
using AttrId = std::uint16_t;

/// Is notified of the changes of the entities it is subscribed to, on the thread that makes them.
class Subscriber {
  public:
    Subscriber() noexcept = default;
    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;
    virtual ~Subscriber() = default;

    /// `key` names the changed element of a keyed attribute and is 0 for a plain one.
    virtual void attributeChanged(const Entity& publisher, AttrId attribute, std::uint64_t key) = 0;
};

/// A node of the entity runtime: named, perhaps with a parent, publishing attribute changes.
class Entity : public Counted {
  public:
    explicit Entity(std::string name) : name_(std::move(name)) {}

    const std::string& name() const noexcept { return name_; }

    /// The name of the entity's most derived type, for example "Mpls::LfibStatus".
    virtual std::string_view typeName() const noexcept = 0;

    /// The parent is not owned; it detaches its children before it goes.
    Entity* parent() const noexcept { return parent_; }
    void parentIs(Entity* parent);

    /// True from the start of the entity's destruction.
    bool destroying() const noexcept { return destroying_; }

    /// Subscribing twice is subscribing once. Both may be called while a change is being published;
    /// a subscriber that unsubscribes is not notified of it any more.
    void subscribe(Subscriber& subscriber) const;
    void unsubscribe(Subscriber& subscriber) const noexcept;
    bool hasSubscribers() const noexcept;

    void publish(AttrId attribute, std::uint64_t key = 0) const;

    /// How often a change has been published: whoever keeps what was read here compares it.
    std::uint64_t changes() const noexcept { return changes_; }

  protected:
    virtual void parentChanged() {}
    void destroyingIs(bool on) noexcept { destroying_ = on; }

    /// The body of every plain setter: equal values publish nothing.
    template <typename T, typename U>
    void assignAndPublish(T& attribute, U&& value, AttrId id) {
        if (attribute == value) {
            return;
        }
        attribute = std::forward<U>(value);
        publish(id);
    }

    /// The body of every clearer: publishes if something was held, and returns it.
    template <typename T>
    Ptr<T> clearAndPublish(Ptr<T>& attribute, AttrId id) {
        Ptr<T> removed;
        removed.swap(attribute);
        if (removed) {
            publish(id);
        }
        return removed;
    }

  private:
    std::string name_;
    Entity* parent_ = nullptr;
    bool destroying_ = false;
    mutable std::vector<Subscriber*> subscribers_;
    mutable std::uint32_t publishing_ = 0;
    mutable std::uint64_t changes_ = 0;
};

/// Reacts to the changes of one attribute while its notifications are on. Without a publisher it
/// does nothing.
class Reactor : public Counted, public Subscriber {
  public:
    ~Reactor() override { hasNotificationActiveIs(false); }

    void hasNotificationActiveIs(bool active);
    bool hasNotificationActive() const noexcept { return active_; }

    /// While the owner is being torn down nothing is reacted to.
    virtual void zelDoZombieReactors(bool zombie) noexcept { zombie_ = zombie; }

    void attributeChanged(const Entity& publisher, AttrId attribute, std::uint64_t key) final;

  protected:
    Reactor(Ptr<const Entity> publisher, AttrId attribute) noexcept
        : publisher_(std::move(publisher)), attribute_(attribute) {}

    virtual void react(std::uint64_t key) = 0;

  private:
    Ptr<const Entity> publisher_;
    AttrId attribute_;
    bool active_ = false;
    bool zombie_ = false;
};

} // namespace Tessel
