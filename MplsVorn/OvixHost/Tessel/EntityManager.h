#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

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

/// How a table is mounted.
enum class MountKind : std::uint8_t { reading = 3 };

struct Mount {
    std::string path;
    std::string typeName;
    MountKind kind;
};

/// The shared tables of one system, mounted by path and type name. A publisher (in the embedded
/// case the agent itself) offers tables; a reader mounts first and takes the handle later.
class ShmEntityManager : public Counted {
  public:
    /// The one manager of a system, created on first use.
    static Ptr<ShmEntityManager> ofSystem(const std::string& systemName, bool local);

    void tableIs(std::string_view path, Ptr<Entity> table) {
        tables_.entityIs(path, std::move(table));
    }
    void tableDel(std::string_view path) { tables_.entityDel(path); }

    /// Asks for a table; the same request twice is one mount.
    void mount(std::string_view path, std::string_view typeName, MountKind kind);
    const std::vector<Mount>& mounts() const noexcept { return mounts_; }

    /// Present only if the path is mounted, offered, and of the type mounted and asked for.
    template <typename T>
    Fetched<T> fetch(std::string_view path) const {
        const Mount* request = mountAt(path);
        if (request == nullptr) {
            return {Found::absent, nullptr};
        }
        const Ptr<Entity> any = tables_.entity(path);
        if (any && any->typeName() != request->typeName) {
            return {Found::wrongType, nullptr};
        }
        return tables_.fetch<T>(path);
    }

    ShmEntityManager(std::string systemName, bool local) : tables_(std::move(systemName), local) {}

  private:
    const Mount* mountAt(std::string_view path) const noexcept;

    EntityManager tables_;
    std::vector<Mount> mounts_;
};

} // namespace Tessel
