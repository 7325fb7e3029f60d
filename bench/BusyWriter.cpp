#include "BusyWriter.h"

#include <array>
#include <csignal>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

namespace {

[[noreturn]] void write(const std::string& name, const BusyWriter::Fill& fill,
                        const BusyWriter::Change& change, int ready) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Mpls::TablePublisher tables(Tessel::TableMemory::sharedForWriting(name));
    fill(tables);
    tables.commit();
    const char done = 1;
    if (::write(ready, &done, 1) != 1) {
        _exit(1);
    }
    for (std::uint32_t batch = 1; change; ++batch) {
        change(tables, batch);
        tables.commit();
    }
    for (;;) {
        pause();
    }
}

} // namespace

BusyWriter::BusyWriter(std::string name, const Fill& fill, const Change& change)
    : name_(std::move(name)), process_(0) {
    std::array<int, 2> ready{};
    if (pipe(ready.data()) != 0 || (process_ = fork()) < 0) {
        throw std::runtime_error("cannot start a writer");
    }
    if (process_ == 0) {
        write(name_, fill, change, ready[1]);
    }
    close(ready[1]);
    char done = 0;
    const bool filled = read(ready[0], &done, 1) == 1;
    close(ready[0]);
    if (!filled) {
        throw std::runtime_error("the writer failed");
    }
}

BusyWriter::~BusyWriter() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    Tessel::TableMemory::remove(name_);
}

Ptr<Tessel::TableReader> BusyWriter::reader() const {
    return Tessel::make<Tessel::TableReader>(Tessel::TableMemory::sharedForReading(name_));
}

std::string benchTables(const std::string& what) {
    return "bench-" + std::to_string(getpid()) + "-" + what;
}

} // namespace Bench
