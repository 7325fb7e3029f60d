#pragma once

#include <string_view>

#include "Tessel/Entity.h"

/// Two unrelated kinds of entities.
namespace TestSupport {

struct Node : Tessel::Entity {
    Node() : Entity("node") {}
    std::string_view typeName() const noexcept override { return "Test::Node"; }
};

struct OtherNode : Tessel::Entity {
    OtherNode() : Entity("other") {}
    std::string_view typeName() const noexcept override { return "Test::OtherNode"; }
};

} // namespace TestSupport
