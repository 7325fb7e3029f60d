#include "Router.h"

#include <algorithm>
#include <stdexcept>

#include "Counters.h"
#include "Forwarding/PluginHost.h"
#include "Mpls/RoutingInfo.h"
#include "Ovix/trace/Trace.h"
#include "Tables/TableLoading.h"
#include "Tessel/Exceptions.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

namespace Differential {

using OvixAgent::CaptureTime;
using OvixAgent::WritableFrame;

namespace {

/// Enough for all that a script makes; its shadow is what an address sanitizer has to make each
/// time.
constexpr std::size_t tableBytes = std::size_t{64} << 20U;

CaptureTime timeOf(const ScriptFrame& frame) noexcept {
    constexpr std::uint64_t second = 1'000'000'000;
    return {static_cast<std::int64_t>(frame.time / second),
            static_cast<std::uint32_t>(frame.time % second)};
}

std::uint32_t lengthOf(const ScriptFrame& frame) noexcept {
    return static_cast<std::uint32_t>(frame.bytes.size());
}

} // namespace

/// The ports, the CPU, and the loopback interface of exception frames.
class Router::Ports {
  public:
    Ports(OvixAgent::PortTable& table, Fault fault, bool anyMac)
        : cpu("cpu", fault), loopback("lo", fault) {
        for (OvixAgent::Port& port : table.ports()) {
            ports_.push_back(std::make_unique<RecordingPort>(port.name, fault));
            port.out = ports_.back().get();
            port.anyMac = anyMac;
        }
    }
    void take(Recording& into) {
        for (const auto& port : ports_) {
            into.take(port->recording());
        }
        into.take(cpu.recording());
        into.take(loopback.recording());
    }
    std::uint64_t frames() const noexcept {
        std::uint64_t frames = 0;
        for (const auto& port : ports_) {
            frames += port->frames();
        }
        return frames;
    }
    void keepLines() {
        for (const auto& port : ports_) {
            port->recording() = Recording(true);
        }
        cpu.recording() = Recording(true);
        loopback.recording() = Recording(true);
    }

    RecordingPort cpu;
    RecordingPort loopback;

  private:
    std::vector<std::unique_ptr<RecordingPort>> ports_;
};

/// What the agent would answer about, and its traces.
class Router::Drops : public OvixAgent::DropListener {
  public:
    void tooBig(const OvixAgent::Frame& received, std::span<const std::uint8_t> leaving,
                std::uint32_t mtu) override {
        recording.add("too big", received);
        recording.add("too big as it would leave", leaving);
        recording.add("too big for", std::uint64_t{mtu});
        if (next != nullptr) {
            next->tooBig(received, leaving, mtu);
        }
    }
    void undelivered(const OvixAgent::Frame& received, std::string_view reason) override {
        recording.add("undelivered", received);
        recording.add("undelivered because", reason);
        if (next != nullptr) {
            next->undelivered(received, reason);
        }
    }

    Recording recording;
    OvixAgent::DropListener* next = nullptr;
};

/// Where a burst lies: each frame with its headroom between guards, which nobody may touch. Under
/// the address sanitizer nobody may even read them.
class Router::Buffers {
  public:
    Buffers() = default;
    Buffers(const Buffers&) = delete;
    Buffers& operator=(const Buffers&) = delete;
    ~Buffers() { guardsMayBeRead(true); }

    std::vector<WritableFrame>& place(const std::vector<ScriptFrame>& frames) {
        std::size_t size = 0;
        for (const ScriptFrame& frame : frames) {
            size += frame.headroom + frame.bytes.size() + guard;
        }
        guardsMayBeRead(true);
        memory_.assign(size + guard, mark);
        placed_.clear();
        std::uint8_t* at = memory_.data() + guard;
        for (const ScriptFrame& frame : frames) {
            at += frame.headroom;
            std::copy(frame.bytes.begin(), frame.bytes.end(), at);
            placed_.push_back({at, lengthOf(frame), lengthOf(frame) + frame.snapped, frame.headroom,
                               frame.port, timeOf(frame)});
            at += frame.bytes.size() + guard;
        }
        guardsMayBeRead(false);
        return placed_;
    }
    /// Whether the guards are as they were.
    bool isIntact(const std::vector<ScriptFrame>& frames) const noexcept {
        guardsMayBeRead(true);
        const std::uint8_t* at = memory_.data();
        for (const ScriptFrame& frame : frames) {
            if (!isMarked(at)) {
                return false;
            }
            at += guard + frame.headroom + frame.bytes.size();
        }
        return isMarked(at);
    }

  private:
    static constexpr std::size_t guard = 16;
    static constexpr std::uint8_t mark = 0xa5;

#ifdef __SANITIZE_ADDRESS__
    void guardsMayBeRead(bool may) const noexcept {
        if (may) {
            ASAN_UNPOISON_MEMORY_REGION(memory_.data(), memory_.size());
            return;
        }
        const std::uint8_t* from = memory_.data();
        for (const WritableFrame& frame : placed_) {
            ASAN_POISON_MEMORY_REGION(from, frame.bytes - frame.headroom - from);
            from = frame.bytes + frame.size;
        }
        ASAN_POISON_MEMORY_REGION(from, memory_.data() + memory_.size() - from);
    }
#else
    void guardsMayBeRead(bool) const noexcept {}
#endif

    static bool isMarked(const std::uint8_t* at) noexcept {
        return std::all_of(at, at + guard, [](std::uint8_t byte) { return byte == mark; });
    }

    std::vector<std::uint8_t> memory_;
    std::vector<WritableFrame> placed_;
};

namespace {

OvixAgent::AgentState& started(OvixAgent::AgentState& state) {
    OvixAgent::startPlugin("", state.pluginContext());
    state.tables().noticeSubscribers();
    return state;
}

Mpls::TablePublisher& filled(Mpls::TablePublisher& publisher,
                             const OvixAgent::AgentConfig& config) {
    if (const auto loaded = OvixAgent::loadTables(config, "script", publisher); !loaded) {
        throw std::logic_error(loaded.refused().what);
    }
    publisher.commit();
    return publisher;
}

} // namespace

// How long the tables' memory is kept must not depend on the clock: where records lie shows in
// traces.
Router::Router(const Script& script, Road road, Fault fault)
    : script_(&script), fault_(road == Road::fast ? fault : Fault::none),
      publisher_(Tessel::TableMemory::ofProcess(tableBytes),
                 script.reusesRecords ? std::chrono::hours(0) : std::chrono::hours(24)),
      state_(std::make_unique<OvixAgent::AgentState>(
          script.configs.front(),
          Tessel::make<Tessel::TableReader>(
              "differential", filled(publisher_, script.configs.front()).tables().memory()),
          "differential")),
      tables_(script.configs.front()),
      ports_(std::make_unique<Ports>(tables_.ports, fault_, script.anyMac)),
      drops_(std::make_unique<Drops>()), buffers_(std::make_unique<Buffers>()),
      answers_(script.isAnswered
                   ? std::make_unique<OvixAgent::CpuAnswers>(ports_->cpu, script.configs.front(),
                                                             tables_, state_->tables())
                   : nullptr),
      ipRoutes_(state_->tables().reader(), tables_.ports, tables_.vrfs),
      forwarder_(started(*state_).manager(), tables_, cpu()) {
    drops_->next = answers_.get();
    tables_.neighbours.solicitsIs(script.isLive);
    tables_.drops = script.isLive ? drops_.get() : nullptr; // as runs on captures have it
    if (road == Road::fast) {
        fastPath_.emplace(forwarder_, state_->manager(), tables_, state_->tables());
        if (script.byWorker) {
            worker_.emplace(*fastPath_, forwarder_, tables_);
        }
        if (script.isBusy) {
            busy_.emplace(fastPath_->shared(), script);
        }
    }
    // Where packets wait, which live runs alone have them do, there is no frame that one is of.
    loopback_.emplace(ports_->loopback, script.isLive ? none_
                                        : fastPath_   ? fastPath_->current()
                                                      : received_);
}

Router::~Router() {
    traceIs(false);
    Ovix::TraceOutput::instance().textSinkIs({});
}

OvixAgent::TransmitPort& Router::cpu() noexcept {
    return answers_ ? static_cast<OvixAgent::TransmitPort&>(*answers_) : ports_->cpu;
}

std::vector<ScriptFrame> Router::takeAnswers() {
    std::vector<ScriptFrame> frames;
    if (answers_) {
        for (OvixAgent::CpuAnswers::Frame& answer : answers_->take()) {
            frames.push_back({.bytes = std::move(answer.bytes), .port = answer.port});
        }
    }
    return frames;
}

// As the agent does, the gate is closed for what workers share and changes do not close it for.

void Router::configure(std::size_t config) {
    const OvixAgent::ForwardingGate::Closed closed(tables_.gate);
    tables_.configure(script_->configs[config]);
    if (answers_) {
        answers_->configure(script_->configs[config]);
    }
    ipRoutes_.startOver(tables_.vrfs);
}

void Router::mplsRoutingIs(bool on) {
    const auto info = state_->pluginContext()->entityManager()->fetch<Mpls::RoutingInfo>(
        "routing/mpls/routingInfo/status");
    info.entity->mplsRoutingEnabledIs(on);
}

void Router::portUpIs(OvixAgent::PortIndex port, bool up) {
    const OvixAgent::ForwardingGate::Closed closed(tables_.gate);
    tables_.ports.upIs(port, up);
    state_->interfaces()->intfStatusIs(tables_.ports.ports()[port].intfId, up);
}

void Router::settleWaiting(bool atTheEnd) {
    using Time = OvixAgent::Sender::Clock::time_point;
    forwarder_.settleWaiting(atTheEnd ? Time::max() : Time());
}

void Router::clearCounters() {
    state_->manager()->clearCountersRequests()->requestClearAll();
}

void Router::traceIs(bool on) {
    Ovix::TraceOutput& output = Ovix::TraceOutput::instance();
    if (on) {
        output.textSinkIs([this](std::string_view handle, unsigned, std::string_view line) {
            drops_->recording.add(handle, line);
        });
    }
    isTraced_ = on;
    output.textLevelOfAllIs(on ? 0 : Ovix::TraceSource::off);
}

void Router::fastPathIs(bool on) {
    isFastPathOn_ = on;
    if (fastPath_) {
        fastPath_->isOnIs(on);
    }
}

void Router::refresh() {
    state_->tables().refresh();
    const OvixAgent::ForwardingGate::Closed closed(tables_.gate);
    ipRoutes_.refresh();
}

void Router::receive(const std::vector<ScriptFrame>& frames) {
    refresh();
    if (worker_) {
        receiveByWorker(frames);
    } else if (fastPath_) {
        receiveFast(frames);
    } else {
        receiveByDefinition(frames);
    }
}

namespace {

/// A frame is received again as long as its generation is replaced while it is read: never often
/// when nobody writes.
class Patience {
  public:
    void isTriedAgain() {
        constexpr unsigned most = 1000;
        if (++tries_ == most) {
            throw std::runtime_error("a frame is received again for ever");
        }
    }

  private:
    unsigned tries_ = 0;
};

} // namespace

void Router::receiveFast(const std::vector<ScriptFrame>& frames) {
    std::span<WritableFrame> left = buffers_->place(frames);
    Patience patience;
    while (!left.empty()) {
        left = left.subspan(fastPath_->receive(left));
        if (!left.empty()) {
            patience.isTriedAgain();
            refresh();
        }
    }
    if (!buffers_->isIntact(frames)) {
        drops_->recording.add("memory", "what lies around the frames has changed");
    }
}

void Router::receiveByWorker(const std::vector<ScriptFrame>& frames) {
    Patience patience;
    for (WritableFrame& frame : buffers_->place(frames)) {
        worker_->refresh();
        for (bool isTaken = worker_->receive(frame); !isTaken; isTaken = worker_->takeLeft()) {
            patience.isTriedAgain();
            refresh();
        }
    }
    if (!buffers_->isIntact(frames)) {
        drops_->recording.add("memory", "what lies around the frames has changed");
    }
}

void Router::receiveByDefinition(const std::vector<ScriptFrame>& frames) {
    Patience patience;
    for (std::size_t i = 0; i < frames.size();) {
        const ScriptFrame& frame = frames[i];
        received_ = {frame.port, timeOf(frame), frame.bytes, lengthOf(frame) + frame.snapped};
        try {
            forwarder_.receive(received_);
            ++i;
        } catch (const Tessel::SnapshotLost&) {
            patience.isTriedAgain();
            refresh();
        }
    }
}

Recording Router::take(bool looksAtCounters, bool keepsLines) {
    Recording all(keepsLines);
    ports_->take(all);
    all.take(drops_->recording);
    if (looksAtCounters) {
        recordCounters(all, forwarder_, *state_, fault_);
        for (const auto& wanted : tables_.neighbours.wanted().take()) {
            all.add("wanted at " + std::to_string(wanted.port), wanted.address.text());
        }
    }
    return all;
}

void Router::keepLines() {
    ports_->keepLines();
    drops_->recording = Recording(true);
}

std::uint64_t Router::framesOut() const noexcept {
    return ports_->frames();
}

OvixAgent::Summary Router::summary() const {
    OvixAgent::Summary summary;
    forwarder_.addTo(summary);
    return summary;
}

const OvixAgent::FastPath::Counts& Router::counts() const noexcept {
    static constexpr OvixAgent::FastPath::Counts none;
    return fastPath_ ? fastPath_->counts() : none;
}

} // namespace Differential
