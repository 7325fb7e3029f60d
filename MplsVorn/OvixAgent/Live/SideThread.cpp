#include "Live/SideThread.h"

#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

#include "Posix/SystemError.h"
#include "Posix/WithoutSignals.h"

namespace OvixAgent {

namespace {

constexpr int niceness = 5;

} // namespace

SideThread::SideThread() : done_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!done_.isOpen()) {
        Posix::fail("cannot make an event descriptor");
    }
    const Posix::WithoutSignals here;
    thread_ = std::thread([this] { work(); });
}

SideThread::~SideThread() {
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    posted_.notify_one();
    thread_.join();
}

void SideThread::post(Task task) {
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    posted_.notify_one();
}

bool SideThread::takeDone() {
    const std::lock_guard lock(mutex_);
    eventfd_t tasks = 0;
    return eventfd_read(done_.value(), &tasks) == 0;
}

void SideThread::work() {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceness); // of this thread alone
    for (;;) {
        std::unique_lock lock(mutex_);
        posted_.wait(lock, [this] { return ends_ || !tasks_.empty(); });
        if (ends_) {
            return;
        }
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        task = {};
        lock.lock();
        eventfd_write(done_.value(), 1);
    }
}

} // namespace OvixAgent
