#pragma once

#include <unistd.h>
#include <utility>

namespace Posix {

/// Owns an open file, socket or device; -1 is none.
class FileDescriptor {
  public:
    FileDescriptor() noexcept = default;
    explicit FileDescriptor(int owned) noexcept : value_(owned) {}
    FileDescriptor(FileDescriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        FileDescriptor(std::move(other)).swap(*this);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (isOpen()) {
            close(value_);
        }
    }

    bool isOpen() const noexcept { return value_ >= 0; }
    int value() const noexcept { return value_; }

  private:
    void swap(FileDescriptor& other) noexcept { std::swap(value_, other.value_); }

    int value_ = -1;
};

} // namespace Posix
