#include "Tessel/EntityManager.h"

#include <gtest/gtest.h>

#include "TesselTesting.h"

namespace {

using namespace Tessel;
using namespace TestSupport;

TEST(EntityManager, KnowsItsSystem) {
    EXPECT_EQ(EntityManager("chassis", true).systemName(), "chassis");
    EXPECT_TRUE(EntityManager("chassis", true).local());
    EXPECT_FALSE(EntityManager("chassis", false).local());
}

TEST(EntityManager, TellsAbsentFromWrongTypeFromPresent) {
    EntityManager state("s", true);
    const Ptr<Node> node = make<Node>();
    state.entityIs("a/b", node);
    const auto present = state.fetch<Node>("a/b");
    EXPECT_EQ(present.found, Found::present);
    EXPECT_EQ(present.entity, node);
    const auto wrong = state.fetch<OtherNode>("a/b");
    EXPECT_EQ(wrong.found, Found::wrongType);
    EXPECT_FALSE(wrong.entity);
    for (const char* path : {"a", "a/", "a/b/", "a/b/c", "/a/b", ""}) {
        EXPECT_EQ(state.fetch<Node>(path).found, Found::absent) << path;
        EXPECT_FALSE(state.fetch<Node>(path).entity) << path;
        EXPECT_FALSE(state.entity(path)) << path;
    }
}

TEST(EntityManager, FetchesAsABaseAndAsConst) {
    EntityManager state("s", true);
    state.entityIs("a", make<Node>());
    EXPECT_EQ(state.fetch<Entity>("a").found, Found::present);
    EXPECT_EQ(state.fetch<const Node>("a").found, Found::present);
    EXPECT_EQ(state.fetch<const OtherNode>("a").found, Found::wrongType);
}

TEST(EntityManager, ReplacesAndRemovesByPath) {
    EntityManager state("s", true);
    const Ptr<Node> first = make<Node>();
    state.entityIs("a", first);
    EXPECT_EQ(first->references(), 2U);
    state.entityIs("a", make<OtherNode>());
    EXPECT_EQ(first->references(), 1U);
    EXPECT_EQ(state.fetch<OtherNode>("a").found, Found::present);
    state.entityDel("b");
    state.entityDel("a");
    EXPECT_EQ(state.fetch<OtherNode>("a").found, Found::absent);
    state.entityIs("a", nullptr);
    EXPECT_EQ(state.fetch<OtherNode>("a").found, Found::absent);
}

} // namespace
