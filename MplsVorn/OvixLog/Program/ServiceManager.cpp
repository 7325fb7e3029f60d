#include "Program/ServiceManager.h"

#include <algorithm>
#include <cstdint>
#include <systemd/sd-daemon.h>

namespace OvixLog {

namespace {

/// Beside its clock the manager takes no other.
std::string reloadingSince(ServiceManager::Clock::time_point now) {
    const auto since =
        std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch());
    return "RELOADING=1\nMONOTONIC_USEC=" + std::to_string(since.count());
}

} // namespace

ServiceManager::ServiceManager() {
    if (std::uint64_t within = 0; sd_watchdog_enabled(0, &within) > 0) {
        feedsEvery_ = std::chrono::microseconds(within / 2);
        nextFeeding_ = Clock::time_point::min();
    }
}

void ServiceManager::isReady() {
    if (!isReady_) {
        isReady_ = true;
        sd_notify(0, "READY=1");
    }
}

void ServiceManager::isReloading() {
    if (isReady_) {
        sd_notify(0, reloadingSince(Clock::now()).c_str());
    }
}

void ServiceManager::hasReloaded() {
    if (isReady_) {
        sd_notify(0, "READY=1");
    }
}

void ServiceManager::isStopping() {
    sd_notify(0, "STOPPING=1");
}

void ServiceManager::statusIs(std::string_view status) {
    if (status_ != status) {
        status_ = status;
        std::string line = "STATUS=" + status_;
        std::replace(line.begin(), line.end(), '\n', ' '); // which would begin another variable
        sd_notify(0, line.c_str());
    }
}

void ServiceManager::feed(Clock::time_point now) {
    sd_notify(0, "WATCHDOG=1");
    nextFeeding_ = now + feedsEvery_;
}

} // namespace OvixLog
