#include "Capture/CaptureRun.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <csignal>
#include <poll.h>

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
    assert(input != nullptr && tables != nullptr && fastPath != nullptr);
    const StopSignals signals;
    FrameBurst burst(FrameBurst::memoryFor(longestCapturedFrame));
    std::uint64_t frames = 0;
    for (gather(burst); !burst.isEmpty(); gather(burst)) {
        const std::size_t gathered = burst.frames().size();
        forward(burst.frames());
        lookAround();
        const bool isRequestDue =
            (frames + gathered) / framesPerRequest != frames / framesPerRequest;
        frames += gathered;
        if (control != nullptr && (isRequestDue || control->isBusy())) {
            control->serve();
        }
        if (progress->isDue(gathered)) {
            progress->show(frames, input->progress());
        }
    }
    progress->clear();
    return caughtSignal;
}

/// Copies frames into the burst: at least one unless the input or the run has ended, and others as
/// long as they need not be waited for.
void CaptureRun::gather(FrameBurst& burst) const {
    burst.clear();
    waitForInput();
    std::uint8_t* room = burst.room(longestCapturedFrame);
    while (caughtSignal == 0 && room != nullptr && (burst.isEmpty() || awaitInput(0))) {
        const Frame* const frame = input->next();
        if (frame == nullptr) {
            break;
        }
        assert(frame->bytes.size() <= longestCapturedFrame);
        std::copy(frame->bytes.begin(), frame->bytes.end(), room);
        burst.addWritten({.size = static_cast<std::uint32_t>(frame->bytes.size()),
                          .originalLength = frame->originalLength,
                          .port = frame->port,
                          .time = frame->time});
        room = burst.room(longestCapturedFrame);
    }
}

/// Whether the next frame can be read without waiting, within the time. What pipes have to read is
/// read.
bool CaptureRun::awaitInput(int milliseconds) const {
    for (int pipe = input->waitDescriptor(); pipe >= 0; pipe = input->waitDescriptor()) {
        std::array<pollfd, 2> waiting{
            {{pipe, POLLIN, 0}, {control != nullptr ? control->descriptor() : -1, POLLIN, 0}}};
        const bool isAnswering = control != nullptr && control->isBusy();
        poll(waiting.data(), milliseconds == 0 ? 1 : waiting.size(),
             isAnswering ? 0 : milliseconds);
        if (waiting[1].revents != 0 || (isAnswering && milliseconds > 0)) {
            control->serve();
        }
        if (waiting[0].revents == 0) {
            return false;
        }
        input->look();
    }
    return true;
}

// While a pipe has nothing to read, tables are refreshed and requests served.
void CaptureRun::waitForInput() const {
    constexpr int tableRefreshMs = 100;
    while (caughtSignal == 0 && !awaitInput(tableRefreshMs)) {
        tables->refresh();
        lookAround();
    }
}

void CaptureRun::lookAround() const {
    if (betweenBursts) {
        betweenBursts();
    }
}

void CaptureRun::forward(std::span<WritableFrame> burst) const {
    while (!burst.empty()) {
        tables->refresh();
        burst = burst.subspan(fastPath->receive(burst));
    }
}

} // namespace OvixAgent
