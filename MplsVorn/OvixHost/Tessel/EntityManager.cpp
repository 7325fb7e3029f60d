#include "Tessel/EntityManager.h"

#include <algorithm>
#include <utility>

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

Ptr<ShmEntityManager> ShmEntityManager::ofSystem(const std::string& systemName, bool local) {
    static std::map<std::pair<std::string, bool>, Ptr<ShmEntityManager>> managers;
    Ptr<ShmEntityManager>& manager = managers[{systemName, local}];
    if (!manager) {
        manager = make<ShmEntityManager>(systemName, local);
    }
    return manager;
}

void ShmEntityManager::mount(std::string_view path, std::string_view typeName, MountKind kind) {
    if (mountAt(path) == nullptr) {
        mounts_.push_back({std::string(path), std::string(typeName), kind});
    }
}

const Mount* ShmEntityManager::mountAt(std::string_view path) const noexcept {
    const auto found = std::find_if(mounts_.begin(), mounts_.end(),
                                    [&](const Mount& mount) { return mount.path == path; });
    return found != mounts_.end() ? &*found : nullptr;
}

} // namespace Tessel
