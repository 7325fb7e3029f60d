#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "Tessel/Entity.h"

namespace Tessel {

/// Entities of which the process has one, found and created by type name.
class Singletons {
  public:
    using Factory = Ptr<Entity> (*)();

    static Singletons& instance();

    /// Makes a type known; creating a singleton of an unknown type throws std::out_of_range.
    void factoryIs(std::string_view typeName, Factory factory);

    Ptr<Entity> find(std::string_view typeName) const;
    /// The singleton of that type, made now unless there is one.
    Ptr<Entity> create(std::string_view typeName);
    void singletonDel(std::string_view typeName);

  private:
    std::map<std::string, Factory, std::less<>> factories_;
    std::map<std::string, Ptr<Entity>, std::less<>> entities_;
};

} // namespace Tessel
