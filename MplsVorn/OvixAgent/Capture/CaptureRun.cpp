#include "Capture/CaptureRun.h"

#include <array>
#include <poll.h>

#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

/// How often requests are looked for while frames keep coming.
constexpr std::uint64_t framesPerLook = 256;

} // namespace

void CaptureRun::forwardAll() {
    std::uint64_t frames = 0;
    for (;;) {
        waitForInput();
        const Frame* frame = input->next();
        if (frame == nullptr) {
            break;
        }
        forward(*frame);
        ++frames;
        if (control != nullptr && frames % framesPerLook == 0) {
            control->serve();
        }
        if (progress->isDue()) {
            progress->show(frames, input->progress());
        }
    }
    progress->clear();
}

// A pipe may have nothing to read for long; what has to be done meanwhile is done.
void CaptureRun::waitForInput() {
    for (int pipe = input->waitDescriptor(); pipe >= 0; pipe = input->waitDescriptor()) {
        constexpr int tablesLookMs = 100;
        std::array<pollfd, 2> waiting{
            {{pipe, POLLIN, 0}, {control != nullptr ? control->descriptor() : -1, POLLIN, 0}}};
        poll(waiting.data(), waiting.size(), tablesLookMs);
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
            // The process was held up for so long that what it read from has been replaced.
        }
    }
}

} // namespace OvixAgent
