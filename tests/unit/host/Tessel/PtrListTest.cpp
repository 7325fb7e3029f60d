#include "Tessel/PtrList.h"

#include <gtest/gtest.h>
#include <vector>

namespace PtrListTest {

namespace {

using namespace Tessel;

struct Item : Counted {
    explicit Item(int& gone) : gone_(gone) {}
    ~Item() override { ++gone_; }
    int& gone_;
};

template <std::size_t inPlace>
void keepsEveryLength() {
    for (std::size_t length = 0; length <= 100; ++length) {
        SCOPED_TRACE(length);
        int gone = 0;
        std::vector<const Item*> pushed;
        {
            PtrList<Item, inPlace> list;
            EXPECT_TRUE(list.empty());
            for (std::size_t i = 0; i < length; ++i) {
                Ptr<Item> item = make<Item>(gone);
                pushed.push_back(item.get());
                list.push(std::move(item));
                EXPECT_EQ(list.front().get(), pushed.front());
            }
            EXPECT_EQ(list.size(), length);
            EXPECT_EQ(list.empty(), length == 0);
            std::vector<const Item*> visited;
            for (const Ptr<Item>& item : list) {
                EXPECT_EQ(item->references(), 1U);
                visited.push_back(item.get());
            }
            EXPECT_EQ(visited, pushed);
            EXPECT_EQ(gone, 0);
        }
        EXPECT_EQ(gone, static_cast<int>(length));
    }
}

TEST(PtrList, KeepsItemsInOrderAndReleasesEachAtItsEnd) {
    keepsEveryLength<1>();
    keepsEveryLength<2>();
    keepsEveryLength<4>();
}

TEST(PtrList, MayHoldAnItemMoreThanOnceAndEmptyHandles) {
    int gone = 0;
    const Ptr<Item> item = make<Item>(gone);
    {
        PtrList<Item, 2> list;
        for (int i = 0; i < 40; ++i) {
            list.push(item);
            list.push(nullptr);
        }
        EXPECT_EQ(item->references(), 41U);
        bool held = true;
        for (const Ptr<Item>& entry : list) {
            EXPECT_EQ(static_cast<bool>(entry), held);
            held = !held;
        }
    }
    EXPECT_EQ(item->references(), 1U);
}

TEST(PtrList, AWalkVisitsWhatTheListHeldAtItsStart) {
    int gone = 0;
    const Ptr<Item> item = make<Item>(gone);
    for (std::size_t length = 0; length <= 100; ++length) {
        PtrList<Item, 4> list;
        for (std::size_t i = 0; i < length; ++i) {
            list.push(item);
        }
        std::size_t visited = 0;
        for (const Ptr<Item>& entry : list) {
            list.push(entry);
            ++visited;
        }
        EXPECT_EQ(visited, length);
        EXPECT_EQ(list.size(), 2 * length);
        EXPECT_EQ(item->references(), 1 + 2 * length);
    }
}

} // namespace

} // namespace PtrListTest
