#pragma once

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "Posix/FileDescriptor.h"

namespace TestSupport {

/// A local stream socket that answers one line with the same text to whoever connects first.
class AnsweringSocket {
  public:
    explicit AnsweringSocket(std::string answer)
        : path_(std::filesystem::temp_directory_path() /
                ("answering-test-" + std::to_string(getpid()))),
          listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        unlink(path_.c_str());
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::copy(path_.begin(), path_.end(), address.sun_path);
        EXPECT_EQ(bind(listener_.value(), reinterpret_cast<sockaddr*>(&address), sizeof address),
                  0);
        EXPECT_EQ(listen(listener_.value(), 1), 0);
        thread_ = std::thread([this, answer = std::move(answer)] { serve(answer); });
    }
    ~AnsweringSocket() {
        shutdown(listener_.value(), SHUT_RDWR); // ends an accept() that nobody has used
        thread_.join();
        unlink(path_.c_str());
    }
    AnsweringSocket(const AnsweringSocket&) = delete;
    AnsweringSocket& operator=(const AnsweringSocket&) = delete;

    const std::string& path() const noexcept { return path_; }
    /// The line that was received; ask once the answer has come.
    const std::string& request() const noexcept { return request_; }

  private:
    void serve(const std::string& answer) {
        const Posix::FileDescriptor client(accept(listener_.value(), nullptr, nullptr));
        char byte = 0;
        while (client.isOpen() && recv(client.value(), &byte, 1, 0) == 1 && byte != '\n') {
            request_ += byte;
        }
        for (std::size_t sent = 0; client.isOpen() && sent < answer.size();) {
            const ssize_t count =
                send(client.value(), answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return;
            }
            sent += static_cast<std::size_t>(count);
        }
    }

    std::string path_;
    Posix::FileDescriptor listener_;
    std::string request_;
    std::thread thread_;
};

} // namespace TestSupport
