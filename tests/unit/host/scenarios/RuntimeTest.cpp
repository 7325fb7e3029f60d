#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Tessel/Assert.h"
#include "Tessel/BoundedList.h"
#include "Tessel/BoundedString.h"
#include "Tessel/EntityManager.h"
#include "Tessel/FlatMap.h"
#include "Tessel/Ptr.h"
#include "Tessel/PtrList.h"
#include "Tessel/ShmEntityManager.h"
#include "Tessel/Singletons.h"
#include "Tessel/Slab.h"

namespace {

using namespace Tessel;

struct Thing : Counted {
    explicit Thing(int* gone = nullptr) : gone_(gone) {}
    ~Thing() override {
        if (gone_ != nullptr) {
            ++*gone_;
        }
    }
    int* gone_;
};

TEST(CountedHandle, CountsEveryStepOfItsLife) {
    int gone = 0;
    Ptr<Thing> first = make<Thing>(&gone);
    EXPECT_EQ(first->references(), 1U);
    Ptr<Thing> copy = first;
    EXPECT_EQ(first->references(), 2U);
    Ptr<const Counted> base = copy;
    EXPECT_EQ(first->references(), 3U);
    Ptr<Thing> moved = std::move(copy);
    EXPECT_EQ(first->references(), 3U);
    EXPECT_FALSE(copy); // NOLINT(bugprone-use-after-move): a moved-from handle is empty
    Ptr<Thing>& itself = moved;
    moved = itself;
    EXPECT_EQ(first->references(), 3U);
    moved.reset();
    base = nullptr;
    EXPECT_EQ(first->references(), 1U);
    Thing* raw = first.detach();
    EXPECT_EQ(raw->references(), 1U);
    raw->release();
    EXPECT_EQ(gone, 1);
}

TEST(CountedHandle, CountsAtomicallyWhenThereAreThreads) {
    int gone = 0;
    Threading::multiThreadedIs(true);
    {
        Ptr<Thing> shared = make<Thing>(&gone);
        const auto copyOften = [shared] {
            for (int i = 0; i < 100000; ++i) {
                const Ptr<Thing> copy = shared;
            }
        };
        std::thread other(copyOften);
        copyOften();
        other.join();
        EXPECT_EQ(shared->references(), 2U); // the lambda's own
    }
    Threading::multiThreadedIs(false);
    EXPECT_EQ(gone, 1);
}

TEST(PtrList, KeepsAnyNumberOfItemsInOrder) {
    for (std::size_t size = 0; size <= 100; ++size) {
        int gone = 0;
        std::vector<Thing*> pushed;
        {
            PtrList<Thing, 4> list;
            for (std::size_t i = 0; i < size; ++i) {
                pushed.push_back(new Thing(&gone));
                list.push(Ptr<Thing>(pushed.back()));
            }
            EXPECT_EQ(list.size(), size);
            std::size_t at = 0;
            for (const Ptr<Thing>& item : list) {
                EXPECT_EQ(item.get(), pushed[at++]);
            }
            EXPECT_EQ(at, size);
        }
        EXPECT_EQ(gone, static_cast<int>(size));
    }
}

TEST(FlatMap, AgreesWithTheStandardMapOverRandomOperations) {
    FlatMap<std::uint32_t> map;
    std::unordered_map<std::uint64_t, std::uint32_t> expected;
    std::mt19937_64 random(1);
    for (std::uint32_t i = 0; i < 300000; ++i) {
        const std::uint64_t key = random() % 2000;
        if (random() % 3 == 0) {
            EXPECT_EQ(map.erase(key), expected.erase(key) == 1);
        } else {
            map[key] = i;
            expected[key] = i;
        }
    }
    EXPECT_EQ(map.size(), expected.size());
    for (std::uint64_t key = 0; key < 2000; ++key) {
        const auto found = expected.find(key);
        ASSERT_EQ(map.find(key) != nullptr, found != expected.end()) << key;
        if (found != expected.end()) {
            EXPECT_EQ(*map.find(key), found->second);
        }
    }
    EXPECT_THROW(map[FlatMap<int>::reservedKey], RangeError);
}

TEST(BoundedString, HoldsAHundredBytesAndNoMore) {
    const std::string hundred(100, 'x');
    EXPECT_EQ(BoundedString<100>(std::string_view(hundred)).view(), hundred);
    EXPECT_THROW(BoundedString<100>(std::string_view(hundred + "x")), RangeError);
}

TEST(BoundedList, RefusesMoreThanItsCapacity) {
    BoundedList<std::uint32_t, 599> list;
    const std::vector<std::uint32_t> many(600, 7);
    list.assign(many.data(), 599);
    EXPECT_EQ(list.size(), 599U);
    EXPECT_THROW(list.push(1), RangeError);
    EXPECT_THROW(list.assign(many.data(), 600), RangeError);
    EXPECT_EQ(list.size(), 599U);
}

struct Node : Entity {
    using Entity::Entity;
    std::string_view typeName() const noexcept override { return "Node"; }
    void valueIs(int value) { assignAndPublish(value_, value, 3); }
    int value_ = 0;
};
struct OtherNode : Entity {
    using Entity::Entity;
    std::string_view typeName() const noexcept override { return "OtherNode"; }
};

struct Listener : Subscriber {
    void attributeChanged(const Entity& publisher, AttrId attribute, std::uint64_t) override {
        heard.push_back(attribute);
        if (leave != nullptr) {
            publisher.unsubscribe(*leave);
        }
    }
    std::vector<AttrId> heard;
    Subscriber* leave = nullptr;
};

TEST(EntityPublishing, TellsSubscribersOfChangesOnce) {
    Node node("n");
    Listener listener;
    node.subscribe(listener);
    node.subscribe(listener);
    node.valueIs(5);
    node.valueIs(5);
    EXPECT_EQ(listener.heard, std::vector<AttrId>{3});
    node.unsubscribe(listener);
    node.valueIs(6);
    EXPECT_EQ(listener.heard.size(), 1U);
}

TEST(EntityPublishing, OneWhoLeavesDuringAPublicationHearsNoMoreOfIt) {
    Node node("n");
    Listener first;
    Listener second;
    first.leave = &second;
    node.subscribe(first);
    node.subscribe(second);
    node.valueIs(1);
    node.valueIs(2);
    EXPECT_EQ(first.heard.size(), 2U);
    EXPECT_TRUE(second.heard.empty());
}

TEST(StateDatabase, TellsAbsentFromWrongTypeFromPresent) {
    EntityManager entities("s", true);
    EXPECT_EQ(entities.fetch<Node>("a/b").found, Found::absent);
    entities.entityIs("a/b", make<OtherNode>("o"));
    EXPECT_EQ(entities.fetch<Node>("a/b").found, Found::wrongType);
    EXPECT_FALSE(entities.fetch<Node>("a/b").entity);
    entities.entityIs("a/b", make<Node>("n"));
    EXPECT_EQ(entities.fetch<Node>("a/b").found, Found::present);
    entities.entityDel("a/b");
    EXPECT_EQ(entities.fetch<Node>("a/b").found, Found::absent);
}

TEST(SharedTables, AreTakenOnlyWhenMountedAndOfTheMountedType) {
    const auto tables = ShmEntityManager::ofSystem("tables", true);
    EXPECT_EQ(tables, ShmEntityManager::ofSystem("tables", true));
    EXPECT_NE(tables, ShmEntityManager::ofSystem("tables", false));
    tables->tableIs("t", make<Node>("n"));
    EXPECT_EQ(tables->fetch<Node>("t").found, Found::absent);
    tables->mount("t", "Node", MountKind::reading);
    tables->mount("t", "Node", MountKind::reading);
    EXPECT_EQ(tables->mounts().size(), 1U);
    EXPECT_EQ(tables->fetch<Node>("t").found, Found::present);
    tables->tableIs("t", make<OtherNode>("o"));
    EXPECT_EQ(tables->fetch<OtherNode>("t").found, Found::wrongType);
}

TEST(Singletons, AreMadeByTypeNameAndFoundAgain) {
    Singletons& singletons = Singletons::instance();
    EXPECT_THROW(singletons.create("Unknown"), std::out_of_range);
    singletons.factoryIs("Node", []() -> Ptr<Entity> { return make<Node>("one"); });
    EXPECT_FALSE(singletons.find("Node"));
    const auto made = singletons.create("Node");
    EXPECT_EQ(singletons.find("Node"), made);
    singletons.singletonDel("Node");
    EXPECT_FALSE(singletons.find("Node"));
}

TEST(HardAssertion, EndsTheProcessNamingTextFunctionAndSource) {
    EXPECT_DEATH(hardAssert(false, "a > b", "compare", "Some/Source", 12),
                 "Some/Source:12: compare: assertion \"a > b\" failed");
}

} // namespace
