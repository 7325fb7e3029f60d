#include "Capture/CaptureRun.h"

#include <array>
#include <cassert>
#include <poll.h>

#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

/// Control requests are served once in so many frames.
constexpr std::uint64_t framesPerRequest = 256;

} // namespace

void CaptureRun::forwardAll() {
    assert(input != nullptr && tables != nullptr && forwarder != nullptr && loopback != nullptr);
    std::uint64_t frames = 0;
    for (;;) {
        waitForInput();
        const Frame* frame = input->next();
        if (frame == nullptr) {
            break;
        }
        forward(*frame);
        ++frames;
        if (control != nullptr && frames % framesPerRequest == 0) {
            control->serve();
        }
        if (progress->isDue()) {
            progress->show(frames, input->progress());
        }
    }
    progress->clear();
}

// While a pipe has nothing to read, tables are refreshed and requests served.
void CaptureRun::waitForInput() {
    for (int pipe = input->waitDescriptor(); pipe >= 0; pipe = input->waitDescriptor()) {
        constexpr int tableRefreshMs = 100;
        std::array<pollfd, 2> waiting{
            {{pipe, POLLIN, 0}, {control != nullptr ? control->descriptor() : -1, POLLIN, 0}}};
        poll(waiting.data(), waiting.size(), tableRefreshMs);
        tables->refresh();
        if (control != nullptr && waiting[1].revents != 0) {
            control->serve();
        }
        if (waiting[0].revents != 0) {
            input->look();
        }
    }
}

void CaptureRun::forward(const Frame& frame) {
    loopback->timeIs(frame.time);
    for (;;) {
        tables->refresh();
        try {
            forwarder->receive(frame);
            return;
        } catch (const Tessel::SnapshotLost&) {
            // The generation was overwritten while it was read: refresh and try again.
        }
    }
}

} // namespace OvixAgent
