#include "Live/workers/Workers.h"

#include <chrono>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "Posix/SystemError.h"
#include "Posix/WithoutSignals.h"

namespace OvixAgent {

namespace {

constexpr int idleMs = 100;

Posix::FileDescriptor eventDescriptor() {
    Posix::FileDescriptor made(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!made.isOpen()) {
        Posix::fail("cannot make an event descriptor");
    }
    return made;
}

void runOn(unsigned int cpu) {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(cpu, &cpus);
    pthread_setaffinity_np(pthread_self(), sizeof cpus, &cpus); // which the configuration checks
}

} // namespace

Workers::Workers(FastPath& fastPath, ForwardingTables& tables, FrameAccounts& accounts,
                 LivePorts& ports, LinkSync& links, std::vector<unsigned int> cpus)
    : fastPath_(&fastPath), tables_(&tables), accounts_(&accounts), cpus_(std::move(cpus)),
      wake_(eventDescriptor()) {
    DecidedTables& decided = fastPath.shared();
    for (std::size_t i = 0; i < ports.queues(); ++i) {
        Worker& worker =
            *workers_.emplace_back(std::make_unique<Worker>(decided, wake_.value(), links.watch()));
        worker.ports() = ports.takeQueues(i);
        for (PortIndex port = 0; port < tables.ports.ports().size(); ++port) {
            worker.portIs(port, *worker.ports()[ports.numberOf(port)]);
        }
        urgent_.push_back(&worker.lanes().urgent);
        for (const auto& lane : worker.lanes().ofPorts) {
            lanes_.push_back(lane.get());
        }
    }
    turns_.resize(workers_.size());
}

void Workers::start(const std::function<void()>& settle) {
    if (!threads_.empty()) {
        return;
    }
    for (const auto& worker : workers_) {
        worker->open();
    }
    constexpr std::chrono::seconds longest{1};
    const auto end = std::chrono::steady_clock::now() + longest;
    for (const auto& worker : workers_) {
        while (worker->turn() && std::chrono::steady_clock::now() < end) {
            settle();
        }
    }
    settle();
    const Posix::WithoutSignals here;
    for (std::size_t i = 0; i < workers_.size(); ++i) {
        threads_.emplace_back([this, i] { work(i); });
    }
}

void Workers::work(std::size_t number) {
    pthread_setname_np(pthread_self(), ("worker " + std::to_string(number)).c_str());
    if (number < cpus_.size()) {
        runOn(cpus_[number]);
    }
    Worker& worker = *workers_[number];
    bool hasMore = false;
    while (!ends_.load(std::memory_order_relaxed)) {
        worker.wait(hasMore ? 0 : idleMs);
        hasMore = worker.turn();
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    do {
        worker.wait(0);
    } while (worker.turn() && std::chrono::steady_clock::now() < end);
}

void Workers::stop() {
    if (threads_.empty()) {
        return;
    }
    {
        const ForwardingGate::Closed closed(tables_->gate);
        for (const auto& worker : workers_) {
            for (const auto& port : worker->ports()) {
                port->stopIntake();
            }
        }
    }
    ends_ = true;
    call();
    for (std::thread& thread : threads_) {
        thread.join();
    }
    threads_.clear();
}

void Workers::call() noexcept {
    for (const auto& worker : workers_) {
        worker->call();
    }
}

bool Workers::haveTurned() noexcept {
    for (std::size_t i = 0; i < threads_.size(); ++i) {
        if (workers_[i]->turns() == turns_[i]) {
            return false;
        }
    }
    for (std::size_t i = 0; i < threads_.size(); ++i) {
        turns_[i] = workers_[i]->turns();
    }
    return true;
}

std::size_t Workers::takeLeft(const Visitor& visitor, std::size_t budget) {
    std::uint64_t times = 0;
    [[maybe_unused]] const ssize_t size = read(wake_.value(), &times, sizeof times);
    return takeFrames(urgent_, lanes_, visitor, budget);
}

void Workers::collect() {
    const ForwardingGate::Closed closed(tables_->gate);
    for (const auto& worker : workers_) {
        collect(*worker);
    }
}

void Workers::collect(Worker& worker) {
    accounts_->absorb(worker.accounts());
    worker.accounts().recorder().generationIs(accounts_->recorder().generation());
    fastPath_->addFast(worker.takeFast());
    std::vector<OwnPorts::Own>& own = worker.own().all();
    for (PortIndex i = 0; i < own.size(); ++i) {
        tables_->ports.ports()[i].sent += std::exchange(own[i].sent, {});
        if (Pseudowire* const pseudowire = tables_->pseudowires.ofPort(i)) {
            pseudowire->sent += std::exchange(own[i].intoPseudowire, {});
            pseudowire->delivered += std::exchange(own[i].fromPseudowire, {});
        }
    }
}

// A few at a time, since all of them take milliseconds. A label that has no counter any more, since
// its route was withdrawn, gets none again.
void Workers::collectLabels() {
    const auto counters = fastPath_->labelCounters();
    if (!counters) {
        return;
    }
    constexpr std::uint32_t atOnce = 4096;
    for (std::uint32_t first = 0; first <= Lumo::MplsLabel::max; first += atOnce) {
        const ForwardingGate::Closed closed(tables_->gate);
        for (const auto& worker : workers_) {
            for (std::uint32_t i = 0; i < atOnce; i += worker->labels().labelsAtOnce) {
                counters->absorbLabels(first + i, worker->labels(), [this](std::uint32_t label) {
                    return fastPath_->isFound(label);
                });
            }
        }
    }
}

} // namespace OvixAgent
