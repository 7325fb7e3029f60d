#include "vtysh/Vtysh.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <thread>

namespace VtyshTest {

namespace {

using OvixFpm::Vtysh;
using namespace std::chrono_literals;

Tessel::Result<std::string> run(const std::vector<std::string>& command,
                                std::chrono::milliseconds patience = 5s) {
    Vtysh vtysh(command, patience);
    for (;;) {
        if (auto printed = vtysh.receive()) {
            return *std::move(printed);
        }
        pollfd waiting{vtysh.descriptor(), POLLIN, 0};
        poll(&waiting, 1, 10);
    }
}

std::string refusal(const std::vector<std::string>& command,
                    std::chrono::milliseconds patience = 5s) {
    const auto printed = run(command, patience);
    return printed ? "printed " + printed.value() : printed.refused().what;
}

} // namespace

TEST(Vtysh, WhatIsPrintedIsReadWhole) {
    EXPECT_EQ(run({"/bin/echo", "-n", "$HOME; one"}).value(), "$HOME; one");
    const auto much = run({"/usr/bin/head", "-c", "1000000", "/dev/zero"});
    EXPECT_EQ(much.value(), std::string(1'000'000, '\0'));
}

TEST(Vtysh, ItHasNothingOfThisProcess) {
    EXPECT_EQ(run({"/usr/bin/env"}).value(), "PATH=/usr/sbin:/usr/bin:/sbin:/bin\n");
    EXPECT_EQ(run({"/bin/cat"}).value(), "");
}

TEST(Vtysh, AFailureIsReported) {
    EXPECT_EQ(refusal({"/bin/false"}), "/bin/false has ended with 1");
    EXPECT_EQ(refusal({"/no/such"}), "/no/such cannot be started: No such file or directory");
    EXPECT_EQ(refusal({"/bin/sh", "-c", "kill -ABRT $$"}), "/bin/sh was ended by signal 6");
}

TEST(Vtysh, ItIsKilledWhenItTakesTooLong) {
    EXPECT_EQ(refusal({"/bin/sleep", "100"}, 50ms), "/bin/sleep takes too long");
    // Even if it closes its output before.
    EXPECT_EQ(refusal({"/bin/sh", "-c", "exec >&-; exec sleep 100"}, 50ms),
              "/bin/sh takes too long");
}

TEST(Vtysh, ItIsKilledWhenItPrintsTooMuch) {
    EXPECT_EQ(refusal({"/bin/cat", "/dev/zero"}), "/bin/cat prints too much");
}

} // namespace VtyshTest
