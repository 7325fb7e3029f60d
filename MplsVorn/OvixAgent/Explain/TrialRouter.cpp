#include "Explain/TrialRouter.h"

#include <algorithm>
#include <cassert>
#include <exception>

#include "FastPath/FastPath.h"
#include "Forwarding/PluginHost.h"
#include "Ovix/trace/Trace.h"
#include "Published/Pseudowires.h"
#include "Tables/TableLoading.h"

namespace OvixAgent {

const Ovix::RoadNote* Walk::last(std::string_view step) const noexcept {
    const auto found = std::find_if(notes.rbegin(), notes.rend(),
                                    [&](const auto& note) { return note.step == step; });
    return found != notes.rend() ? &*found : nullptr;
}

/// Keeps what it is given.
class TrialRouter::KeptPort : public TransmitPort {
  public:
    KeptPort(std::string name, std::vector<Walk::Sent>& sent)
        : name_(std::move(name)), sent_(&sent) {}
    void transmit(const Frame& frame) override {
        sent_->push_back({name_, {frame.bytes.begin(), frame.bytes.end()}, frame.originalLength});
    }

  private:
    std::string name_;
    std::vector<Walk::Sent>* sent_;
};

/// Collects notes and trace lines while it lives.
class TrialRouter::Notes {
  public:
    explicit Notes(Walk& walk) : former_(Ovix::TraceOutput::instance().textSink()) {
        Ovix::TraceOutput& traces = Ovix::TraceOutput::instance();
        traces.textSinkIs([&walk](std::string_view, unsigned, std::string_view line) {
            walk.trace.emplace_back(line);
        });
        traces.textLevelOfAllIs(0);
        Ovix::RoadNotes::listenerIs(
            [&walk](Ovix::RoadNote note) { walk.notes.push_back(std::move(note)); });
    }
    Notes(const Notes&) = delete;
    Notes& operator=(const Notes&) = delete;
    ~Notes() {
        Ovix::RoadNotes::listenerIs({});
        Ovix::TraceOutput::instance().textLevelOfAllIs(Ovix::TraceSource::off);
        Ovix::TraceOutput::instance().textSinkIs(former_);
    }

  private:
    Ovix::TraceOutput::TextSink former_;
};

TrialRouter::TrialRouter(const Situation& situation) : config_(situation.config) {}

TrialRouter::~TrialRouter() = default;

Tessel::Result<std::unique_ptr<TrialRouter>> TrialRouter::of(const Situation& situation) {
    std::unique_ptr<TrialRouter> made(new TrialRouter(situation));
    if (const auto started = made->start(situation); !started) {
        return started.refused();
    }
    return made;
}

Tessel::Result<Ptr<Tessel::TableReader>> TrialRouter::labelTables(const Situation& situation) {
    if (situation.tables && situation.changes.empty()) {
        return situation.tables->reader();
    }
    changed_ = std::make_unique<Mpls::TablePublisher>(
        situation.tables ? situation.tables->memory() : Tessel::TableMemory::ofProcess());
    if (!situation.tables) {
        if (const auto loaded = loadTables(config_, situation.file, *changed_); !loaded) {
            return loaded.refused();
        }
    }
    for (const Situation::TableChange& change : situation.changes) {
        if (const auto done = change(*changed_); !done) {
            return done.refused();
        }
    }
    changed_->commit();
    return Tessel::make<Tessel::TableReader>("tables", changed_->tables().memory());
}

Tessel::Result<void> TrialRouter::start(const Situation& situation) {
    const auto reader = labelTables(situation);
    if (!reader) {
        return reader.refused();
    }
    state_ = std::make_unique<AgentState>(config_, reader.value());
    startPlugin(situation.plugin, state_->pluginContext());
    state_->tables().noticeSubscribers();
    tables_ = std::make_unique<ForwardingTables>(config_);
    for (Port& port : tables_->ports.ports()) {
        ports_.push_back(std::make_unique<KeptPort>(port.name, sent_));
        port.out = ports_.back().get();
        port.anyMac = situation.anyMac;
    }
    for (const NeighbourConfig& neighbour : situation.neighbours) {
        tables_->neighbours.learn(neighbour.address, neighbour.port, neighbour.mac);
    }
    for (const char* const own : {"cpu", "lo"}) {
        ports_.push_back(std::make_unique<KeptPort>(own, sent_));
    }
    tables_->neighbours.solicitsIs(situation.waitsForNeighbours);
    if (situation.isLive && situation.tables) {
        takeShared();
    }
    loopback_ = std::make_unique<CapturedLoopback>(*ports_.back(), current_);
    answers_ = std::make_unique<CpuAnswers>(**(ports_.end() - 2), config_, *tables_,
                                            state_->tables(), CpuAnswers::Purpose::trial);
    tables_->drops = answers_.get();
    forwarder_ = std::make_unique<Forwarder>(state_->manager(), *tables_, *answers_);
    return {};
}

void TrialRouter::takeShared() {
    ipRoutes_.emplace(state_->tables().reader(), tables_->ports, tables_->vrfs);
    constexpr int mostPages = 1 << 20;
    for (int i = 0; i < mostPages && !ipRoutes_->refresh(); ++i) {
    }
    tables_->signalledAre(L2::Pseudowires::read(state_->tables().tables()));
}

std::vector<Walk::Sent> TrialRouter::takeSent() {
    return std::exchange(sent_, {});
}

namespace {

/// The fate noted last is the frame's own; those before it are of replicas.
void setFate(Walk& walk) {
    const Ovix::RoadNote* const note = walk.last("fate");
    if (note == nullptr) {
        return;
    }
    walk.isWaiting = *note->value("fate") == "waiting";
    walk.kind =
        walk.isWaiting ? FateKind::forwarded : *Tessel::valueOf<FateKind>(*note->value("fate"));
    walk.reason = *note->value("reason");
}

} // namespace

Walk TrialRouter::walk(const GivenFrame& given) {
    Walk walk;
    current_ = {given.port, given.time, given.bytes, given.originalLength};
    {
        const Notes notes(walk);
        forwarder_->receive(current_);
    }
    forwarder_->settleWaiting(Sender::Clock::time_point::max());
    walk.sent = takeSent();
    setFate(walk);
    forwardAnswers(walk);
    return walk;
}

/// Only live runs answer, whose ports route IP.
void TrialRouter::forwardAnswers(Walk& walk) {
    const auto portsRoute = [this](bool routes) {
        for (std::size_t i = 0; i < config_.ports.size(); ++i) {
            tables_->ports.ports()[i].routesIp = routes || config_.ports[i].routesIp;
        }
    };
    portsRoute(true);
    for (const CpuAnswers::Frame& answer : answers_->take()) {
        const auto size = static_cast<std::uint32_t>(answer.bytes.size());
        Walk road;
        current_ = {answer.port, current_.time, answer.bytes,
                    size,        answer.isOwn,  answer.alertsRouters};
        {
            const Notes notes(road);
            forwarder_->receive(current_);
        }
        forwarder_->settleWaiting(Sender::Clock::time_point::max());
        const std::vector<Walk::Sent> sent = takeSent();
        Ovix::RoadNote note{"reply", {}};
        for (const Ovix::RoadNote::Field& field : road.last("fate")->fields) {
            note.fields.push_back(field);
        }
        note.with("port", sent.empty() ? "" : sent.back().port)
            .with("length", sent.empty() ? size : sent.back().originalLength);
        walk.notes.push_back(std::move(note));
    }
    answers_->take(); // to a reply that went on
    portsRoute(false);
}

// The first frames with a label only make its decision.
TrialRouter::FastRoad TrialRouter::fastRoad(const GivenFrame& given) {
    FastPath fast(*forwarder_, state_->manager(), *tables_, state_->tables());
    fast.checkEveryIs(1, [](const std::string&) {});
    constexpr int times = 4;
    for (int i = 0; i < times; ++i) {
        std::vector<std::uint8_t> memory(frameHeadroom + given.bytes.size());
        std::copy(given.bytes.begin(), given.bytes.end(), memory.begin() + frameHeadroom);
        WritableFrame frame{memory.data() + frameHeadroom,
                            static_cast<std::uint32_t>(given.bytes.size()),
                            given.originalLength,
                            frameHeadroom,
                            given.port,
                            given.time};
        fast.receive({&frame, 1});
    }
    takeSent();
    return fast.counts().different > 0 ? FastRoad::differs
           : fast.counts().checked > 0 ? FastRoad::same
                                       : FastRoad::leaves;
}

} // namespace OvixAgent
