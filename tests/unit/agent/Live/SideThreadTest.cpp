#include "Live/SideThread.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

namespace SideThreadTest {

using OvixAgent::SideThread;

bool isDone(SideThread& side, int milliseconds = 5000) {
    pollfd place{side.descriptor(), POLLIN, 0};
    return poll(&place, 1, milliseconds) == 1 && side.takeDone();
}

TEST(SideThread, TasksAreDoneOneAfterTheOtherAndTold) {
    SideThread side;
    EXPECT_FALSE(side.takeDone());
    std::vector<int> done;
    std::atomic<int> tasks = 0;
    for (int i = 0; i < 3; ++i) {
        side.post([&, i] {
            done.push_back(i);
            ++tasks;
        });
    }
    while (tasks < 3) {
        EXPECT_TRUE(isDone(side));
    }
    isDone(side, 100);
    EXPECT_EQ(done, (std::vector<int>{0, 1, 2}));
    EXPECT_FALSE(side.takeDone());
}

TEST(SideThread, WhatATaskOwnsGoesInItsThreadBeforeItIsTold) {
    struct Owned {
        std::atomic<std::thread::id>* goneIn;
        ~Owned() { *goneIn = std::this_thread::get_id(); }
    };
    std::atomic<std::thread::id> goneIn{};
    SideThread side;
    side.post([owned = std::shared_ptr<Owned>(new Owned{&goneIn})] {});
    ASSERT_TRUE(isDone(side));
    EXPECT_NE(goneIn.load(), std::thread::id());
    EXPECT_NE(goneIn.load(), std::this_thread::get_id());
}

TEST(SideThread, ItMakesWayAndTakesNoSignals) {
    SideThread side;
    int niceness = 0;
    int blocksTerm = 0;
    side.post([&] {
        niceness = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        blocksTerm = sigismember(&blocked, SIGTERM);
    });
    ASSERT_TRUE(isDone(side));
    EXPECT_GT(niceness, getpriority(PRIO_PROCESS, 0));
    EXPECT_EQ(blocksTerm, 1);
}

TEST(SideThread, TheEndWaitsForTheTaskBeingDoneAlone) {
    std::atomic<int> begun = 0;
    std::atomic<int> ended = 0;
    {
        SideThread side;
        for (int i = 0; i < 100; ++i) {
            side.post([&] {
                ++begun;
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
                ++ended;
            });
        }
        while (begun == 0) {
        }
    }
    EXPECT_EQ(begun, ended);
    EXPECT_LT(begun, 10);
}

} // namespace SideThreadTest
