#include "Server/Lane.h"

#include <utility>

#include "Posix/WithoutSignals.h"

namespace OvixHttp {

Lane::Lane(std::size_t mostWaiting) : mostWaiting_(mostWaiting) {
    const Posix::WithoutSignals here;
    thread_ = std::thread([this] { run(); });
}

bool Lane::add(Work work) {
    {
        const std::lock_guard lock(mutex_);
        if (isStopped_ || waiting_.size() >= mostWaiting_) {
            return false;
        }
        waiting_.push_back(std::move(work));
    }
    changed_.notify_one();
    return true;
}

void Lane::stop() {
    {
        const std::lock_guard lock(mutex_);
        isStopped_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Lane::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isStopped_ || !waiting_.empty(); });
        if (waiting_.empty()) {
            return;
        }
        const Work work = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        work();
        lock.lock();
    }
}

} // namespace OvixHttp
