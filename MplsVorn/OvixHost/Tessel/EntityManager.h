#pragma once

#include <map>
#include <string>
#include <string_view>

#include "Tessel/Entity.h"

namespace Tessel {

/// What a fetch by path found.
enum class Found : std::uint8_t { absent, wrongType, present };

template <typename T>
struct Fetched {
    Found found = Found::absent;
    Ptr<T> entity; ///< empty unless `found` is present
};

/// The device's state database: entities by path. Lives on the agent's main thread.
class EntityManager : public Counted {
  public:
    /// `local` says whether the state is this process's own or another system's.
    EntityManager(std::string systemName, bool local)
        : systemName_(std::move(systemName)), local_(local) {}

    const std::string& systemName() const noexcept { return systemName_; }
    bool local() const noexcept { return local_; }

    void entityIs(std::string_view path, Ptr<Entity> entity);
    void entityDel(std::string_view path);

    /// Empty when there is nothing at the path.
    Ptr<Entity> entity(std::string_view path) const;

    template <typename T>
    Fetched<T> fetch(std::string_view path) const {
        const Ptr<Entity> any = entity(path);
        if (!any) {
            return {Found::absent, nullptr};
        }
        Ptr<T> typed = ptrCast<T>(any);
        const Found found = typed ? Found::present : Found::wrongType;
        return {found, std::move(typed)};
    }

  private:
    std::string systemName_;
    bool local_;
    std::map<std::string, Ptr<Entity>, std::less<>> entities_;
};

} // namespace Tessel
