#include "Command/LiveReload.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <fmt/format.h>
#include <utility>

#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

/// A live run opens its interfaces once, in the order of the ports.
Tessel::Result<void> checkSamePorts(const AgentConfig& old, const AgentConfig& config,
                                    const RunOptions& options) {
    const bool same = std::equal(old.ports.begin(), old.ports.end(), config.ports.begin(),
                                 config.ports.end(), [](const auto& a, const auto& b) {
                                     return a.name == b.name && a.kind == b.kind &&
                                            a.mac == b.mac && a.mtu == b.mtu &&
                                            a.parent == b.parent &&
                                            (!a.isSubInterface() || a.tagging == b.tagging);
                                 });
    if (old.workers != config.workers || old.cpus != config.cpus) {
        return Tessel::Refused{
            fmt::format("{}: {}: a change of workers or their processors needs a restart",
                        options.config, config.cpus.empty() ? "workers" : "cpus")};
    }
    if (!same || old.cpuTap != config.cpuTap) {
        return Tessel::Refused{fmt::format(
            "{}: ports: a change of names, kinds, mac, mtu or sub-interfaces needs a restart",
            options.config)};
    }
    return {};
}

} // namespace

Tessel::Result<AgentConfig> liveConfig(const RunOptions& options, const std::stop_token& stop) {
    Tessel::Result<AgentConfig> config = loadConfig(options.config, stop);
    if (config) {
        for (PortConfig& port : config.value().ports) {
            port.routesIp = true;
        }
    }
    return config;
}

void LiveReload::start() {
    again_ = isPreparing_;
    if (!isPreparing_) {
        isPreparing_ = true;
        reader_ = readerOfShared();
        side_.post([this] {
            prepared_.emplace(prepareOrRefuse());
            isPrepared_ = true;
        });
    }
}

/// One for the other thread, which cannot make it itself: this one's may go over to another file.
Ptr<Tessel::TableReader> LiveReload::readerOfShared() const {
    try {
        return *parts_.ipRoutes ? parts_.state->tables().tables().another() : nullptr;
    } catch (const Tessel::CorruptionDetected&) {
        return nullptr; // reported by this thread's reader
    }
}

LiveReload::Prepared LiveReload::prepareOrRefuse() {
    try {
        return prepare();
    } catch (const std::exception& failed) {
        return Tessel::Refused{failed.what()};
    }
}

/// The label tables come last: they are the only ones that would have to be taken back.
LiveReload::Prepared LiveReload::prepare() {
    Tessel::Result<AgentConfig> newer = liveConfig(*options_, ends_.get_token());
    if (!newer) {
        return newer.refused();
    }
    if (const auto same = checkSamePorts(*config_, newer.value(), *options_); !same) {
        return same.refused();
    }
    if (ends_.stop_requested()) {
        return Tessel::Refused{"the run has ended"};
    }
    auto made = std::make_unique<Made>(std::move(newer).value(), parts_.tables->ports);
    if (*parts_.ipRoutes && !reader_) {
        return Tessel::Refused{
            fmt::format("tables \"{}\" are damaged", parts_.state->tables().tables().name())};
    }
    takeSharedRoutes(*made);
    if (const auto done = parts_.state->prepareTables(made->config, options_->config); !done) {
        return done.refused();
    }
    return made;
}

/// Whatever is missed here, because others write all the time, is taken over afterwards.
void LiveReload::takeSharedRoutes(Made& made) {
    constexpr int longest = 100'000; // steps
    if (!*parts_.ipRoutes) {
        return;
    }
    made.reader = std::move(reader_);
    made.ipRoutes.emplace(made.reader, parts_.tables->ports, made.tables.vrfs);
    for (int i = 0; i < longest && !ends_.stop_requested() && !made.ipRoutes->refresh(); ++i) {
        try {
            made.reader->refresh();
        } catch (const Tessel::CorruptionDetected&) {
            // Reported by the packet thread's reader.
        }
    }
}

void LiveReload::finish() {
    // What has been done may also be that something was taken down.
    if (!side_.takeDone() || !isPrepared_.exchange(false)) {
        return;
    }
    Prepared prepared = std::move(*prepared_);
    prepared_.reset();
    isPreparing_ = false;
    if (prepared) {
        swap(*prepared.value());
        (*log_)("reloads", options_->config + ": reloaded");
        side_.post([before = std::shared_ptr<Made>(std::move(prepared).value())]() mutable {
            before.reset();
        });
    } else {
        (*log_)("reloads", prepared.refused().what + "; the configuration stays as it was");
    }
    if (again_) {
        start();
    }
}

// Handles are not counted atomically: nothing that is given back has one in the packet thread.
void LiveReload::swap(Made& made) {
    const ForwardingGate::Closed closed(parts_.tables->gate);
    parts_.state->commitTables();
    parts_.state->configTextIs(made.config.text);
    parts_.tables->swap(made.tables, made.config);
    parts_.ports->intakesAre(parts_.tables->pseudowires, parts_.tables->ports);
    parts_.links->configure(made.config);
    parts_.answers->configure(made.config);
    if (made.ipRoutes) {
        std::swap(**parts_.ipRoutes, *made.ipRoutes);
        (*parts_.ipRoutes)->readerIs(parts_.state->tables().reader());
        made.ipRoutes->readerIs(made.reader);
    }
    assert(made.tables.vrfs->references() == (made.ipRoutes ? 2 : 1));
}

} // namespace OvixAgent
