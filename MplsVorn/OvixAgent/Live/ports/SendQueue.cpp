#include "Live/ports/SendQueue.h"

#include <algorithm>
#include <cassert>
#include <cerrno>

namespace OvixAgent {

SendQueue::SendQueue(LiveCounts& counts, SendMany sendMany)
    : counts_(&counts), sendMany_(sendMany), bytes_(maxBytes) {
    for (std::size_t i = 0; i < maxFrames; ++i) {
        messages_[i].msg_hdr.msg_iov = &extents_[i];
        messages_[i].msg_hdr.msg_iovlen = 1;
    }
}

void SendQueue::push(int socket, std::span<const std::uint8_t> frame) noexcept {
    if (!fits(frame.size())) {
        flush(socket);
        if (!fits(frame.size())) {
            counts_->add(LiveEvent::queueFull);
            return;
        }
    }
    assert(end_ < maxFrames && usedBytes_ + frame.size() <= bytes_.size());
    std::uint8_t* const copy = bytes_.data() + usedBytes_;
    std::copy(frame.begin(), frame.end(), copy);
    extents_[end_++] = {copy, frame.size()};
    usedBytes_ += frame.size();
}

void SendQueue::flush(int socket) noexcept {
    assert(first_ <= end_ && end_ <= maxFrames);
    while (first_ < end_) {
        const int sent = sendMany_(socket, &messages_[first_],
                                   static_cast<unsigned int>(end_ - first_), MSG_DONTWAIT);
        if (sent > 0) {
            counts_->add(LiveEvent::sent, static_cast<std::uint64_t>(sent));
            first_ += static_cast<std::size_t>(sent);
        } else if (!continuesAfter(errno)) {
            break;
        }
    }
    rewindIfEmpty();
}

// The error is about the first frame: sendmmsg has reported those before it as sent.
bool SendQueue::continuesAfter(int error) noexcept {
    switch (error) {
    case EINTR:
        counts_->add(LiveEvent::interrupted);
        return true;
    case EAGAIN:
        counts_->add(LiveEvent::wouldBlock);
        return false;
    case ENOBUFS:
        skip(LiveEvent::noBuffers);
        return true;
    case EMSGSIZE:
        skip(LiveEvent::tooLong);
        return true;
    case ENETDOWN:
        drop(LiveEvent::linkDown);
        return false;
    case ENXIO:
    case ENODEV:
        drop(LiveEvent::interfaceGone);
        return false;
    default:
        skip(LiveEvent::failed);
        return true;
    }
}

void SendQueue::skip(LiveEvent reason) noexcept {
    assert(first_ < end_);
    counts_->add(reason);
    ++first_;
}

void SendQueue::drop(LiveEvent reason) noexcept {
    counts_->add(reason, size());
    first_ = end_;
    rewindIfEmpty();
}

void SendQueue::rewindIfEmpty() noexcept {
    if (first_ == end_) {
        first_ = 0;
        end_ = 0;
        usedBytes_ = 0;
    }
}

} // namespace OvixAgent
