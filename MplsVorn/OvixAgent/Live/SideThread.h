#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// A thread beside the packet thread, which it makes way for: it has a lower priority and takes no
/// signals. Does one task after the other.
class SideThread {
  public:
    /// A task with all that it owns is gone before the next begins. It must not throw.
    using Task = std::function<void()>;

    /// Throws std::system_error.
    SideThread();
    SideThread(const SideThread&) = delete;
    SideThread& operator=(const SideThread&) = delete;
    /// Waits for the task that is being done; the others are not done any more.
    ~SideThread();

    void post(Task task);

    /// Readable when a task has been done since the last call of takeDone().
    int descriptor() const noexcept { return done_.value(); }
    /// Whether there was any. What such a task has written may be read from now on.
    bool takeDone();

  private:
    void work();

    Posix::FileDescriptor done_;
    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<Task> tasks_;
    bool ends_ = false;
    std::thread thread_;
};

} // namespace OvixAgent
