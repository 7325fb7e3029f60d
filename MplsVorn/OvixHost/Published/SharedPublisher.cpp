#include "Published/SharedPublisher.h"

#include <cassert>
#include <utility>

#include "Tables/TableFiles.h"

namespace Mpls {

SharedPublisher::SharedPublisher(std::string name, RouteOwner owner, std::chrono::milliseconds wait)
    : name_(std::move(name)), owner_(owner) {
    Tessel::TableMemory::checkName(name_);
    ownerLock_ = Tessel::TableFiles::holdOwner(name_, static_cast<std::uint8_t>(owner_));
    takeOver(wait);
    shared_->unlock();
}

void SharedPublisher::takeOver(std::chrono::milliseconds wait) {
    shared_ = std::make_unique<TablePublisher>(
        Tessel::TableMemory::sharedForWriting(name_, Tessel::TableMemory::defaultBytes, wait));
    now_ = shared_.get();
}

SharedPublisher::Since SharedPublisher::begin(std::chrono::milliseconds wait) {
    assert(!hasBegun_);
    Since since = Since::nothing;
    if (shared_ && !shared_->lockAgain(wait)) {
        since = areNamed() ? Since::othersWrote : Since::replaced;
        if (since == Since::replaced) {
            ownerLock_ = Posix::FileDescriptor(); // whose file may be the same as before
            ownerLock_ = Tessel::TableFiles::holdOwner(name_, static_cast<std::uint8_t>(owner_));
        }
        takeOver(wait);
    }
    hasBegun_ = true;
    return since;
}

void SharedPublisher::end() noexcept {
    assert(hasBegun_);
    hasBegun_ = false;
    if (shared_) {
        shared_->unlock();
    }
}

} // namespace Mpls
