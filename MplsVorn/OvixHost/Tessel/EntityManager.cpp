#include "Tessel/EntityManager.h"

namespace Tessel {

void EntityManager::entityIs(std::string_view path, Ptr<Entity> entity) {
    entities_.insert_or_assign(std::string(path), std::move(entity));
}

void EntityManager::entityDel(std::string_view path) {
    if (auto found = entities_.find(path); found != entities_.end()) {
        entities_.erase(found);
    }
}

Ptr<Entity> EntityManager::entity(std::string_view path) const {
    const auto found = entities_.find(path);
    return found != entities_.end() ? found->second : nullptr;
}

} // namespace Tessel
