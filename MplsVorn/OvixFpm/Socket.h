#pragma once

#include <unistd.h>
#include <utility>

namespace OvixFpm {

/// Owns a socket; -1 is none.
class Socket {
  public:
    Socket() noexcept = default;
    explicit Socket(int owned) noexcept : value_(owned) {}
    Socket(Socket&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    Socket& operator=(Socket&& other) noexcept {
        Socket(std::move(other)).swap(*this);
        return *this;
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() {
        if (isOpen()) {
            close(value_);
        }
    }

    bool isOpen() const noexcept { return value_ >= 0; }
    int value() const noexcept { return value_; }

  private:
    void swap(Socket& other) noexcept { std::swap(value_, other.value_); }

    int value_ = -1;
};

} // namespace OvixFpm
