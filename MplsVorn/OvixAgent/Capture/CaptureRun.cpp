#include "Capture/CaptureRun.h"

#include <array>
#include <cassert>
#include <csignal>
#include <poll.h>

#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

/// Control requests are served once in so many frames.
constexpr std::uint64_t framesPerRequest = 256;

volatile std::sig_atomic_t caughtSignal = 0;

/// Takes note of SIGINT and SIGTERM while it lives, which interrupt waiting calls.
class StopSignals {
  public:
    StopSignals() {
        caughtSignal = 0;
        struct sigaction note {};
        note.sa_handler = [](int signal) { caughtSignal = signal; };
        sigaction(SIGINT, &note, &formerInt_);
        sigaction(SIGTERM, &note, &formerTerm_);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    ~StopSignals() {
        sigaction(SIGINT, &formerInt_, nullptr);
        sigaction(SIGTERM, &formerTerm_, nullptr);
    }

  private:
    struct sigaction formerInt_ {};
    struct sigaction formerTerm_ {};
};

} // namespace

int CaptureRun::forwardAll() {
    assert(input != nullptr && tables != nullptr && forwarder != nullptr && loopback != nullptr);
    const StopSignals signals;
    std::uint64_t frames = 0;
    for (;;) {
        waitForInput();
        const Frame* frame = caughtSignal == 0 ? input->next() : nullptr;
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
    return caughtSignal;
}

// While a pipe has nothing to read, tables are refreshed and requests served.
void CaptureRun::waitForInput() const {
    for (int pipe = input->waitDescriptor(); pipe >= 0 && caughtSignal == 0;
         pipe = input->waitDescriptor()) {
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
    loopback->causeIs(frame);
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
