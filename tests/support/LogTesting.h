#pragma once

#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "Posix/FileDescriptor.h"

namespace TestSupport {

/// A pipe as a log; what has been written is read on request.
class LogPipe {
  public:
    LogPipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        reader_ = Posix::FileDescriptor(ends[0]);
        writer_ = Posix::FileDescriptor(ends[1]);
        EXPECT_EQ(fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
    }
    int writer() const noexcept { return writer_.value(); }
    void endReader() { reader_ = Posix::FileDescriptor(); }
    std::string read() const {
        std::string all;
        std::array<char, 65536> piece;
        for (ssize_t got = 0; (got = ::read(reader_.value(), piece.data(), piece.size())) > 0;) {
            all.append(piece.data(), static_cast<std::size_t>(got));
        }
        return all;
    }

  private:
    Posix::FileDescriptor reader_;
    Posix::FileDescriptor writer_;
};

} // namespace TestSupport
