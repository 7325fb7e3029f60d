#include "Tessel/Entity.h"

#include <algorithm>

#include "Tessel/Changes.h"

namespace Tessel {

std::atomic<std::uint64_t> Changes::count_{0};

void Entity::parentIs(Entity* parent) {
    if (parent_ == parent) {
        return;
    }
    parent_ = parent;
    parentChanged();
}

void Entity::subscribe(Subscriber& subscriber) const {
    if (std::find(subscribers_.begin(), subscribers_.end(), &subscriber) == subscribers_.end()) {
        subscribers_.push_back(&subscriber);
    }
}

void Entity::unsubscribe(Subscriber& subscriber) const noexcept {
    auto found = std::find(subscribers_.begin(), subscribers_.end(), &subscriber);
    if (found == subscribers_.end()) {
        return;
    }
    // While a change is being published the list must not move under the publisher.
    if (publishing_ > 0) {
        *found = nullptr;
    } else {
        subscribers_.erase(found);
    }
}

bool Entity::hasSubscribers() const noexcept {
    return std::any_of(subscribers_.begin(), subscribers_.end(),
                       [](const Subscriber* subscriber) { return subscriber != nullptr; });
}

void Entity::publish(AttrId attribute, std::uint64_t key) const {
    /// Ends also when a subscriber throws: the list stays as it should be.
    struct Publication {
        explicit Publication(const Entity& of) noexcept : entity(of) { ++entity.publishing_; }
        Publication(const Publication&) = delete;
        Publication& operator=(const Publication&) = delete;
        ~Publication() {
            if (--entity.publishing_ == 0) {
                std::erase(entity.subscribers_, nullptr);
            }
        }
        const Entity& entity;
    };
    ++changes_;
    Changes::notice();
    const Publication publication(*this);
    const std::size_t listening = subscribers_.size();
    for (std::size_t i = 0; i < listening; ++i) {
        if (subscribers_[i] != nullptr) {
            subscribers_[i]->attributeChanged(*this, attribute, key);
        }
    }
}

void Reactor::hasNotificationActiveIs(bool active) {
    active_ = active;
    if (publisher_ && active) {
        publisher_->subscribe(*this);
    } else if (publisher_) {
        publisher_->unsubscribe(*this);
    }
}

void Reactor::attributeChanged(const Entity&, AttrId attribute, std::uint64_t key) {
    if (!zombie_ && attribute == attribute_) {
        react(key);
    }
}

} // namespace Tessel
