#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Tessel/Entity.h"
#include "Tessel/EntityManager.h"

namespace Tessel {

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
