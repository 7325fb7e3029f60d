#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace OvixHttp {

/// Does one piece of work after the other in a thread of its own.
class Lane {
  public:
    using Work = std::function<void()>;

    explicit Lane(std::size_t mostWaiting);
    ~Lane() { stop(); }
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    /// False when too much waits, or it has been stopped.
    bool add(Work work);
    /// Does what waits, and nothing any more.
    void stop();

  private:
    void run();

    std::size_t mostWaiting_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Work> waiting_;
    bool isStopped_ = false;
    std::thread thread_;
};

} // namespace OvixHttp
