#include "Tessel/EntityManager.h"

#include <gtest/gtest.h>

#include "TesselTesting.h"

namespace EntityManagerTest {

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

namespace {

using namespace Tessel;
using namespace TestSupport;

TEST(ShmEntityManager, IsOnePerSystem) {
    const auto manager = ShmEntityManager::ofSystem("one", true);
    EXPECT_EQ(ShmEntityManager::ofSystem("one", true), manager);
    EXPECT_NE(ShmEntityManager::ofSystem("one", false), manager);
    EXPECT_NE(ShmEntityManager::ofSystem("two", true), manager);
    manager->mount("t", "Test::Node", MountKind::reading);
    EXPECT_TRUE(ShmEntityManager::ofSystem("two", true)->mounts().empty());
}

TEST(ShmEntityManager, KeepsMountsInOrderAndEachOnce) {
    ShmEntityManager tables("s", true);
    tables.mount("b", "Test::Node", MountKind::reading);
    tables.mount("a", "Test::OtherNode", MountKind::reading);
    tables.mount("b", "Test::Node", MountKind::reading);
    ASSERT_EQ(tables.mounts().size(), 2U);
    EXPECT_EQ(tables.mounts()[0].path, "b");
    EXPECT_EQ(tables.mounts()[0].typeName, "Test::Node");
    EXPECT_EQ(tables.mounts()[0].kind, MountKind::reading);
    EXPECT_EQ(tables.mounts()[1].path, "a");
    EXPECT_EQ(static_cast<int>(MountKind::reading), 3);
}

TEST(ShmEntityManager, GivesATableOnlyWhenItIsMounted) {
    ShmEntityManager tables("s", true);
    const Ptr<Node> table = make<Node>();
    tables.tableIs("t", table);
    EXPECT_EQ(tables.fetch<Node>("t").found, Found::absent);
    EXPECT_FALSE(tables.fetch<Node>("t").entity);
    tables.mount("t", "Test::Node", MountKind::reading);
    EXPECT_EQ(tables.fetch<Node>("t").found, Found::present);
    EXPECT_EQ(tables.fetch<Node>("t").entity, table);
    EXPECT_EQ(tables.fetch<const Node>("t").entity, table);
}

TEST(ShmEntityManager, TakesATableOfferedAfterTheMount) {
    ShmEntityManager tables("s", true);
    tables.mount("t", "Test::Node", MountKind::reading);
    EXPECT_EQ(tables.fetch<Node>("t").found, Found::absent);
    tables.tableIs("t", make<Node>());
    EXPECT_EQ(tables.fetch<Node>("t").found, Found::present);
    tables.tableDel("t");
    EXPECT_EQ(tables.fetch<Node>("t").found, Found::absent);
}

TEST(ShmEntityManager, RefusesATableOfAnotherTypeThanMountedOrAsked) {
    ShmEntityManager tables("s", true);
    tables.mount("t", "Test::Node", MountKind::reading);
    tables.tableIs("t", make<OtherNode>());
    for (const auto found : {tables.fetch<Node>("t").found, tables.fetch<OtherNode>("t").found,
                             tables.fetch<Entity>("t").found}) {
        EXPECT_EQ(found, Found::wrongType);
    }
    tables.tableIs("t", make<Node>());
    EXPECT_EQ(tables.fetch<OtherNode>("t").found, Found::wrongType);
    EXPECT_FALSE(tables.fetch<OtherNode>("t").entity);
    EXPECT_EQ(tables.fetch<Node>("t").found, Found::present);
}

} // namespace

} // namespace EntityManagerTest
