#include <thread>

#include "Numbered.h"

namespace ProcessTest {

namespace {

using namespace ShmTesting;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Tessel::TableHeap;
using Tessel::TableMemory;

/// Tables under a name, which other processes write and read.
class Processes : public testing::Test {
  protected:
    static constexpr std::uint32_t routes = 2000;
    static constexpr std::size_t regionBytes = std::size_t{256} << 20U;

    Processes() {
        const auto before = steady_clock::now();
        Mpls::TablePublisher publisher(TableMemory::sharedForWriting(name, regionBytes));
        writeOne(publisher);
        const auto took = steady_clock::now() - before;
        aWhile = static_cast<std::uint32_t>(took / microseconds(1)) * 2;
    }

    Ptr<Tessel::TableReader> open() const {
        return Tessel::make<Tessel::TableReader>(TableMemory::sharedForReading(name));
    }
    /// Writes one batch after the other, until it is killed.
    [[noreturn]] void writeForEver(milliseconds keptFor) const {
        Mpls::TablePublisher publisher(TableMemory::sharedForWriting(name), keptFor);
        for (;;) {
            writeOne(publisher);
        }
    }
    static void writeOne(Mpls::TablePublisher& publisher) {
        NumberedRoutes(routes).write(publisher,
                                     static_cast<std::uint32_t>(publisher.tables().generation()));
        publisher.commit();
    }
    /// Lets `work` go on for a while, not the same each time.
    template <typename Work>
    void forAWhile(Work&& work) {
        const auto until = steady_clock::now() + microseconds(random.below(aWhile));
        do {
            work();
        } while (steady_clock::now() < until);
    }
    /// One writer after the other is killed in the midst of its work, every second one not before
    /// it has published something, and the reader checks.
    void killWriters(int times, milliseconds keptFor, CheckingReader& reader) {
        for (int i = 0; i < times && !HasFailure(); ++i) {
            Child writer([&] { writeForEver(keptFor); });
            const std::uint64_t before = reader.tables().tables().generation();
            while (i % 2 == 1 && reader.tables().tables().generation() == before) {
                reader.check();
            }
            forAWhile([&] { reader.check(); });
            writer.kill();
            reader.check();
        }
    }

    SharedName name;
    Random random;
    std::uint32_t aWhile = 0; ///< microseconds, enough for a few batches
};

TEST_F(Processes, AWriterMayBeKilledAtAnyMoment) {
    CheckingReader reader(open(), routes);
    killWriters(200, TableHeap::keptFor, reader);
    EXPECT_GT(reader.checks(), 200U);
    EXPECT_GE(reader.last(), 100U);
    // Nothing has leaked: what is in use is what the last batch needs, and room was used again.
    Mpls::TablePublisher last(TableMemory::sharedForWriting(name));
    EXPECT_EQ(last.tables().repaired(), 0U);
    const auto writeUpTo = [](Mpls::TablePublisher& publisher) {
        do {
            writeOne(publisher);
        } while (publisher.tables().generation() % 3 != 0);
        return publisher.tables().usedBytes();
    };
    Mpls::TablePublisher fresh(TableMemory::ofProcess(regionBytes));
    EXPECT_EQ(writeUpTo(last), writeUpTo(fresh));
    reader.check();
    constexpr std::uint64_t batchUnits = routes * 40;
    EXPECT_LT(reader.tables().tables().root().heapUnits, 2 * TableHeap::keptUnits + 4 * batchUnits);
}

TEST_F(Processes, AWriterThatKeepsNothingMayBeKilledAtAnyMoment) {
    CheckingReader reader(open(), routes);
    killWriters(40, milliseconds(0), reader);
    reader.check();
    EXPECT_GE(reader.last(), 20U);
    constexpr std::uint64_t batchUnits = routes * 40;
    EXPECT_LT(reader.tables().tables().root().heapUnits, 8 * batchUnits);
}

TEST_F(Processes, AReaderMayBeKilledAtAnyMoment) {
    Mpls::TablePublisher publisher(TableMemory::sharedForWriting(name));
    writeOne(publisher);
    CheckingReader undisturbed(open(), routes);
    for (int i = 0; i < 30 && !HasFailure(); ++i) {
        const auto readForEver = [&] {
            CheckingReader reader(open(), routes);
            while (!HasFailure()) {
                reader.check();
            }
        };
        Child one(readForEver);
        Child other(readForEver);
        forAWhile([&] { writeOne(publisher); });
        undisturbed.check();
        EXPECT_EQ(undisturbed.last() + 1, publisher.tables().generation());
        // Neither has come to an end by itself.
        for (Child* reader : {&one, &other}) {
            ::kill(reader->process(), SIGKILL);
            const int status = reader->wait();
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
        }
    }
    EXPECT_EQ(undisturbed.lost(), 0U);
}

} // namespace

} // namespace ProcessTest
