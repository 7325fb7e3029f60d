#pragma once

#include <array>
#include <atomic>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "Tables/TableReader.h"
#include "Tables/TableWriter.h"
#include "Tessel/Exceptions.h"

/// What the tests of tables in shared memory share.
namespace ShmTesting {

using Tessel::RecordKind;
using Tessel::TableRef;
using Words = std::vector<std::uint64_t>;

/// Two tables: one whose entries are records, one whose entries are values.
inline constexpr std::array<Tessel::TableDescription, 2> twoTables{{
    {"test/records", "Test::Records", RecordKind::ipVia},
    {"test/values", "Test::Values", {}},
}};
inline constexpr std::size_t records = 0;
inline constexpr std::size_t values = 1;

inline constexpr std::size_t enough = std::size_t{16} << 20U;
inline constexpr std::chrono::hours longTime{1};

/// A name for shared memory that no other test uses; nothing is left behind.
class SharedName {
  public:
    SharedName() {
        static int made = 0;
        name_ = "test-" + std::to_string(getpid()) + "-" + std::to_string(++made);
    }
    SharedName(const SharedName&) = delete;
    SharedName& operator=(const SharedName&) = delete;
    ~SharedName() { Tessel::TableMemory::remove(name_); }

    operator const std::string&() const noexcept { return name_; }
    const std::string& text() const noexcept { return name_; }

  private:
    std::string name_;
};

/// A process that runs `work`, until it returns or is killed.
class Child {
  public:
    explicit Child(const std::function<void()>& work) : process_(fork()) {
        if (process_ == 0) {
            work();
            _exit(0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() { kill(); }

    pid_t process() const noexcept { return process_; }
    void kill() {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            wait();
        }
    }
    /// How it ended, as waitpid tells.
    int wait() {
        int status = -1;
        if (process_ > 0) {
            waitpid(process_, &status, 0);
            process_ = -1;
        }
        return status;
    }

  private:
    pid_t process_;
};

/// Lets one process wait for another.
class Signal {
  public:
    Signal() {
        if (pipe(ends_.data()) != 0) {
            throw std::runtime_error("no pipe");
        }
    }
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;
    ~Signal() {
        close(ends_[0]);
        close(ends_[1]);
    }
    void give() const { EXPECT_EQ(write(ends_[1], "", 1), 1); }
    void await() const {
        char byte = 0;
        EXPECT_EQ(read(ends_[0], &byte, 1), 1);
    }

  private:
    std::array<int, 2> ends_{};
};

/// Numbers at random, the same ones in every run.
class Random {
  public:
    explicit Random(std::uint32_t seed = 1) : engine_(seed) {}
    std::uint32_t below(std::uint32_t bound) {
        return static_cast<std::uint32_t>(engine_()) % bound;
    }

  private:
    std::mt19937 engine_;
};

/// The message of the damage that an action ran into; nothing when it ran into none.
template <typename Action>
std::optional<std::string> corruption(Action&& action) {
    try {
        action();
    } catch (const Tessel::CorruptionDetected& found) {
        return found.what();
    }
    return std::nullopt;
}

inline std::uint64_t* wordsOf(std::span<std::byte> memory) {
    return reinterpret_cast<std::uint64_t*>(memory.data());
}
inline Tessel::TableLayout::TableHeader& headerOf(std::span<std::byte> memory) {
    return *reinterpret_cast<Tessel::TableLayout::TableHeader*>(memory.data());
}

/// A writer over memory of this process, and a reader of it.
struct OneSet {
    explicit OneSet(std::chrono::milliseconds kept = longTime, std::size_t bytes = enough)
        : writer(Tessel::TableMemory::ofProcess(bytes), twoTables, kept),
          reader(Tessel::make<Tessel::TableReader>("tables", std::as_bytes(writer.memory()))) {}

    void recordIs(std::uint32_t key, const Words& own) {
        writer.recordEntryIs(records, key, RecordKind::ipVia, own);
    }
    void valueIs(std::uint32_t key, std::uint32_t value) {
        writer.entryIs(
            values, key,
            Tessel::TableLayout::sealed(value, Tessel::TableLayout::entryPlace(values, key)));
    }
    /// Makes the changes visible and goes over to them.
    void commit() {
        writer.commit();
        reader->refresh();
    }
    Words record(std::uint32_t key) const { return recordOf(*reader, key); }
    std::uint32_t value(std::uint32_t key) const { return reader->entry(values, key).unit(); }

    /// A record's own words; none when there is no record.
    static Words recordOf(const Tessel::TableReader& reader, std::uint32_t key) {
        Words own(64);
        const TableRef ref = reader.entry(records, key);
        if (!ref) {
            return {};
        }
        own.resize(reader.read(ref, RecordKind::ipVia, own, "record at unit").size());
        return own;
    }

    Tessel::TableWriter writer;
    Ptr<Tessel::TableReader> reader;
};

} // namespace ShmTesting
