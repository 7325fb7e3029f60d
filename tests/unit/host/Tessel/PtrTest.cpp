#include "Tessel/Ptr.h"

#include <array>
#include <gtest/gtest.h>
#include <thread>
#include <type_traits>
#include <utility>

namespace PtrTest {

namespace {

using namespace Tessel;

struct Base : Counted {
    explicit Base(int& gone) : gone_(gone) {}
    ~Base() override { ++gone_; }
    int& gone_;
};
struct Derived : Base {
    using Base::Base;
};

/// Counts the goodbyes instead of being destroyed.
struct Pooled : Counted {
    int goodbyes = 0;

  protected:
    void lastUserGone() noexcept override { ++goodbyes; }
};

/// Every step is taken with plain and with atomic counting.
class PtrTest : public ::testing::TestWithParam<bool> {
  protected:
    PtrTest() { Threading::multiThreadedIs(GetParam()); }
    ~PtrTest() override { Threading::multiThreadedIs(false); }

    int gone = 0;
};

INSTANTIATE_TEST_SUITE_P(Counting, PtrTest, ::testing::Bool(),
                         [](const auto& mode) { return mode.param ? "Atomic" : "Plain"; });

TEST_P(PtrTest, AnEmptyHandleHoldsNothing) {
    const Ptr<Base> empty;
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty, nullptr);
    EXPECT_EQ(empty.get(), nullptr);
    EXPECT_EQ(empty, Ptr<Base>(nullptr));
    EXPECT_EQ(Ptr<Base>(static_cast<Base*>(nullptr)), empty);
    const Ptr<Base> copy = empty; // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_FALSE(copy);
}

TEST_P(PtrTest, TheFirstHandleOwnsAndTheLastDestroys) {
    {
        const Ptr<Base> only = make<Base>(gone);
        EXPECT_EQ(only->references(), 1U);
        EXPECT_EQ(gone, 0);
    }
    EXPECT_EQ(gone, 1);
}

TEST_P(PtrTest, CopiesAddAndMovesDoNot) {
    Ptr<Base> first = make<Base>(gone);
    Ptr<Base> copied(first);
    EXPECT_EQ(first->references(), 2U);
    const Ptr<Base> moved(std::move(copied));
    EXPECT_EQ(first->references(), 2U);
    EXPECT_FALSE(copied); // NOLINT(bugprone-use-after-move): a moved-from handle is empty
    Ptr<Base> assigned;
    assigned = moved;
    EXPECT_EQ(first->references(), 3U);
    Ptr<Base> moveAssigned;
    moveAssigned = std::move(assigned);
    EXPECT_EQ(first->references(), 3U);
    EXPECT_FALSE(assigned); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(gone, 0);
}

TEST_P(PtrTest, AssigningReleasesWhatWasHeld) {
    Ptr<Base> handle = make<Base>(gone);
    const Ptr<Base> other = make<Base>(gone);
    handle = other;
    EXPECT_EQ(gone, 1);
    EXPECT_EQ(other->references(), 2U);
    handle = nullptr;
    EXPECT_EQ(gone, 1);
    EXPECT_EQ(other->references(), 1U);
    handle = make<Base>(gone);
    handle.reset();
    EXPECT_EQ(gone, 2);
    EXPECT_FALSE(handle);
    handle.reset();
    EXPECT_EQ(gone, 2);
}

TEST_P(PtrTest, AssigningAHandleToItselfChangesNothing) {
    Ptr<Base> only = make<Base>(gone);
    Ptr<Base>& itself = only;
    only = itself;
    EXPECT_EQ(only->references(), 1U);
    only = std::move(itself);
    ASSERT_TRUE(only);
    EXPECT_EQ(only->references(), 1U);
    only.swap(itself);
    EXPECT_EQ(only->references(), 1U);
    EXPECT_EQ(gone, 0);
}

TEST_P(PtrTest, ConvertsToBaseAndToConst) {
    Ptr<Derived> derived = make<Derived>(gone);
    const Ptr<Base> base = derived;
    const Ptr<const Derived> constant = derived;
    const Ptr<const Counted> both = derived;
    EXPECT_EQ(derived->references(), 4U);
    EXPECT_EQ(base, derived);
    EXPECT_EQ(derived, constant);
    EXPECT_EQ(both, base);
    const Ptr<Base> moved = std::move(derived);
    EXPECT_FALSE(derived); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(moved->references(), 4U);
    static_assert(!std::is_convertible_v<Ptr<const Base>, Ptr<Base>>);
    static_assert(!std::is_convertible_v<Ptr<Base>, Ptr<Derived>>);
    static_assert(!std::is_convertible_v<Base*, Ptr<Base>>);
}

TEST_P(PtrTest, CastsDownOnlyToWhatTheObjectIs) {
    const Ptr<Base> derived = make<Derived>(gone);
    const Ptr<Base> base = make<Base>(gone);
    const Ptr<Derived> down = ptrCast<Derived>(derived);
    EXPECT_EQ(down, derived);
    EXPECT_EQ(derived->references(), 2U);
    EXPECT_FALSE(ptrCast<Derived>(base));
    EXPECT_EQ(base->references(), 1U);
    EXPECT_FALSE(ptrCast<Derived>(Ptr<Base>()));
}

TEST_P(PtrTest, DetachHandsOverTheCount) {
    Ptr<Base> handle = make<Base>(gone);
    Base* raw = handle.detach();
    EXPECT_FALSE(handle);
    EXPECT_EQ(raw->references(), 1U);
    EXPECT_EQ(gone, 0);
    raw->retain();
    raw->release();
    EXPECT_EQ(gone, 0);
    raw->release();
    EXPECT_EQ(gone, 1);
}

TEST_P(PtrTest, TheLastUserGoneHookMayKeepTheObject) {
    Pooled pooled;
    {
        const Ptr<Pooled> first(&pooled);
        const Ptr<Pooled> second = first;
        EXPECT_EQ(pooled.references(), 2U);
    }
    EXPECT_EQ(pooled.goodbyes, 1);
    EXPECT_EQ(pooled.references(), 0U);
    { const Ptr<Counted> again(&pooled); }
    EXPECT_EQ(pooled.goodbyes, 2);
}

TEST(PtrThreads, ShareAnObjectAndDestroyItOnce) {
    int gone = 0;
    Threading::multiThreadedIs(true);
    {
        Ptr<Base> shared = make<Base>(gone);
        const auto useOften = [](Ptr<Base> mine) {
            for (int i = 0; i < 50000; ++i) {
                const Ptr<Base> copy = mine;
                const Ptr<const Counted> base = copy;
            }
        };
        std::thread other(useOften, shared);
        useOften(shared);
        other.join();
        EXPECT_EQ(shared->references(), 1U);
        EXPECT_EQ(gone, 0);
    }
    EXPECT_EQ(gone, 1);
    Threading::multiThreadedIs(false);
}

TEST(PtrThreads, TheLastToReleaseDestroys) {
    std::array<int, 1000> gone{};
    Threading::multiThreadedIs(true);
    {
        std::array<Ptr<Base>, 1000> here;
        std::array<Ptr<Base>, 1000> there;
        for (std::size_t i = 0; i < gone.size(); ++i) {
            here[i] = make<Base>(gone[i]);
            there[i] = here[i];
        }
        const auto releaseAll = [](std::array<Ptr<Base>, 1000>& handles) {
            for (Ptr<Base>& handle : handles) {
                handle.reset();
            }
        };
        std::thread other([&] { releaseAll(there); });
        releaseAll(here);
        other.join();
    }
    Threading::multiThreadedIs(false);
    for (const int times : gone) {
        EXPECT_EQ(times, 1);
    }
}

} // namespace

} // namespace PtrTest
