#include "Tessel/Entity.h"

#include <algorithm>

namespace Tessel {

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

void Entity::publish(AttrId attribute, std::uint64_t key) const {
    const std::size_t listening = subscribers_.size();
    ++publishing_;
    for (std::size_t i = 0; i < listening; ++i) {
        if (subscribers_[i] != nullptr) {
            subscribers_[i]->attributeChanged(*this, attribute, key);
        }
    }
    --publishing_;
    if (publishing_ == 0) {
        std::erase(subscribers_, nullptr);
    }
}

} // namespace Tessel
