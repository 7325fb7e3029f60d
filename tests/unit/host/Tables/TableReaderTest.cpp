#include "Tables/TableReader.h"

#include <chrono>
#include <cstring>

#include "InMidRead.h"
#include "ShmTesting.h"

namespace TableReaderTest {

namespace {

using namespace ShmTesting;
using namespace Tessel::TableLayout;
using Tessel::SnapshotLost;
using Tessel::TableMemory;
using Tessel::TableReader;
using Tessel::TableWriter;

class Reader : public testing::Test, public OneSet {
  protected:
    explicit Reader(std::chrono::milliseconds kept = longTime)
        : OneSet(kept, std::size_t{64} << 20U) {
        recordIs(1, {1});
        commit();
    }
    /// Publishes so many generations, which use each other's room where they may.
    void generations(std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i) {
            recordIs(1, {++value});
            writer.commit();
        }
    }
    std::string lost() const {
        try {
            record(1);
        } catch (const SnapshotLost& gone) {
            return gone.what();
        }
        return "nothing";
    }

    std::uint64_t value = 1000; ///< last published
};

class HurriedReader : public Reader {
  protected:
    HurriedReader() : Reader(std::chrono::milliseconds(0)) {}
};

/// Tables whose header a test changes.
class OtherTables : public testing::Test {
  protected:
    OtherTables() : writer(TableMemory::ofProcess(std::size_t{1} << 17U), twoTables) {
        const auto all = writer.memory();
        memory.assign(all.begin(), all.end());
    }
    TableHeader& header() { return headerOf(memory); }
    /// What opening says once the header's check fits what the header says.
    std::string openingSays() {
        header().check = checkOf(header());
        return corruption([&] { TableReader("other", std::as_bytes(std::span(memory))); })
            .value_or("nothing");
    }
    std::string tableSays(std::string_view path, std::string_view type) {
        header().check = checkOf(header());
        const TableReader reader("other", std::as_bytes(std::span(memory)));
        return corruption([&] { reader.table(path, type); }).value_or("nothing");
    }

    TableWriter writer;
    std::vector<std::byte> memory;
};

TEST_F(Reader, GoesOverToANewerGenerationOnRefresh) {
    const std::uint64_t first = reader->generation();
    EXPECT_FALSE(reader->refreshNeeded());
    EXPECT_FALSE(reader->refresh());
    generations(3);
    EXPECT_EQ(reader->generation(), first);
    EXPECT_TRUE(reader->refreshNeeded());
    EXPECT_TRUE(reader->refresh());
    EXPECT_EQ(reader->generation(), first + 3);
    EXPECT_FALSE(reader->refreshNeeded());
    EXPECT_EQ(record(1), Words{value});
}

TEST_F(Reader, TellsWhenItsGenerationWasCommitted) {
    const auto now = [] {
        return static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch() /
                                          std::chrono::nanoseconds(1));
    };
    const std::uint64_t before = now();
    generations(1);
    const std::uint64_t after = now();
    EXPECT_LT(reader->committedAt(), before);
    reader->refresh();
    EXPECT_GE(reader->committedAt(), before);
    EXPECT_LE(reader->committedAt(), after);
}

TEST_F(Reader, HoldsItsGenerationWhileOthersComeAndGo) {
    for (int i = 0; i < 50; ++i) {
        generations(10);
        ASSERT_EQ(record(1), Words{1});
    }
    reader->refresh();
    EXPECT_EQ(record(1), Words{value});
}

TEST_F(HurriedReader, SaysSoWhenWhatItHoldsHasGone) {
    const std::uint64_t first = reader->generation();
    generations(1);
    EXPECT_EQ(lost(), "nothing"); // nothing that it can reach has been written to
    generations(1);
    EXPECT_EQ(lost(), "tables: generation " + std::to_string(first) + " is no longer kept");
    EXPECT_EQ(lost(), "tables: generation " + std::to_string(first) + " is no longer kept");
    EXPECT_THROW(reader->entry(records, 5000), SnapshotLost);
    EXPECT_THROW(reader->pageMadeIn(records, 0), SnapshotLost);
    EXPECT_THROW(reader->forEach(records, [](std::uint32_t, TableRef) {}), SnapshotLost);
    EXPECT_TRUE(reader->refresh());
    EXPECT_EQ(record(1), Words{value});
}

TEST_F(HurriedReader, IsNotLostByOneGenerationAtATime) {
    for (int i = 0; i < 1000; ++i) {
        generations(1);
        ASSERT_EQ(lost(), "nothing");
        reader->refresh();
        ASSERT_EQ(record(1), Words{value});
    }
}

TEST_F(Reader, VisitsEntriesByKeyFromWhereItIsAsked) {
    for (const std::uint32_t key : {1U, 1023U, 1024U, 70000U, maxKey}) {
        recordIs(key, {key});
    }
    commit();
    const auto keysFrom = [&](std::uint32_t from) {
        std::vector<std::uint32_t> keys;
        reader->forEach(
            records,
            [&](std::uint32_t key, TableRef ref) {
                EXPECT_EQ(ref, reader->entry(records, key));
                keys.push_back(key);
            },
            from);
        return keys;
    };
    EXPECT_EQ(keysFrom(0), (std::vector<std::uint32_t>{1, 1023, 1024, 70000, maxKey}));
    EXPECT_EQ(keysFrom(2), (std::vector<std::uint32_t>{1023, 1024, 70000, maxKey}));
    EXPECT_EQ(keysFrom(1024), (std::vector<std::uint32_t>{1024, 70000, maxKey}));
    EXPECT_EQ(keysFrom(1025), (std::vector<std::uint32_t>{70000, maxKey}));
    EXPECT_EQ(keysFrom(maxKey), std::vector<std::uint32_t>{maxKey});
    EXPECT_EQ(reader->entries(records), 5U);
}

TEST_F(Reader, ADamagedNewestRootIsReportedOnceAndTheHeldOneKept) {
    const std::uint64_t held = reader->generation();
    generations(1);
    const TableRef newest{headerOf(writer.memory()).current};
    std::uint64_t& word = wordsOf(writer.memory())[newest.unit() + 1];
    word ^= 1U;
    EXPECT_EQ(corruption([&] { reader->refresh(); }),
              "tables: root at unit " + std::to_string(newest.unit()) + " is invalid");
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(reader->refreshNeeded());
        EXPECT_FALSE(reader->refresh());
    }
    EXPECT_EQ(reader->generation(), held);
    EXPECT_EQ(record(1), Words{1});
    word ^= 1U;
    generations(2);
    EXPECT_TRUE(reader->refresh());
    EXPECT_EQ(reader->generation(), held + 3);
}

TEST_F(Reader, NoNewestRootAtAllIsReportedOnce) {
    headerOf(writer.memory()).current = 0;
    EXPECT_EQ(corruption([&] { reader->refresh(); }), "tables: root at unit 0 is invalid");
    EXPECT_FALSE(reader->refresh());
    EXPECT_EQ(record(1), Words{1});
    EXPECT_TRUE(corruption([&] { TableReader("new", std::as_bytes(writer.memory())); }));
}

TEST_F(OtherTables, AnotherVersionIsRefusedByName) {
    for (const std::uint32_t other : {1U, 2U, 0xffffffffU}) {
        header().version = other;
        EXPECT_EQ(openingSays(), "other: tables of version " + std::to_string(other) + ", not 5");
    }
}

TEST_F(OtherTables, AnotherTypeOrPathIsRefusedByName) {
    EXPECT_EQ(openingSays(), "nothing");
    EXPECT_EQ(tableSays("test/values", "Test::Values"), "nothing");
    EXPECT_EQ(tableSays("test/values", "Test::Records"),
              "other: test/values: table of type \"Test::Values\" is not a Test::Records");
    EXPECT_EQ(tableSays("test", "Test::Values"), "other: has no table test");
    EXPECT_EQ(tableSays("", ""), "other: has no table ");
    std::memcpy(header().names[1].typeName.data(), "Test::Valuez", 12);
    EXPECT_EQ(tableSays("test/values", "Test::Values"),
              "other: test/values: table of type \"Test::Valuez\" is not a Test::Values");
    header().names[1].typeName.fill('x'); // to the end, without one
    EXPECT_EQ(tableSays("test/values", "Test::Values"), "other: test/values: table of type \"" +
                                                            std::string(48, 'x') +
                                                            "\" is not a Test::Values");
}

TEST_F(OtherTables, ALyingHeaderIsRefused) {
    header().tables = maxTables + 1;
    EXPECT_EQ(openingSays(), "other: number of tables 17 is invalid");
    header().tables = 0xffffffff;
    EXPECT_EQ(openingSays(), "other: number of tables 4294967295 is invalid");
    header().tables = 2;
    header().regionBytes += 8;
    EXPECT_EQ(openingSays(), "other: region size 131080 is invalid");
    header().regionBytes -= 8;
    header().magic = 0;
    EXPECT_EQ(openingSays(), "other: magic 0 is invalid");
}

TEST_F(OtherTables, MemoryOfAnotherSizeIsRefused) {
    header().check = checkOf(header());
    for (const std::size_t size : {std::size_t{0}, std::size_t{8}, sizeof(TableHeader),
                                   heapBytesOffset - 8, heapBytesOffset, memory.size() - 8}) {
        const std::vector<std::byte> less(memory.begin(),
                                          memory.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_TRUE(corruption([&] { TableReader("other", less); })) << size;
    }
}

/// A reader in a mapping of its own, whose reads are interrupted by the writer.
class InterruptedReader : public testing::Test {
  protected:
    InterruptedReader() {
        commitRecord(1);
        reader.emplace(TableMemory::sharedForReading(name));
    }
    void commitRecord(std::uint64_t value) {
        writer.recordEntryIs(records, 1, RecordKind::ipVia, Words(8, value));
        writer.commit();
    }
    /// Where a unit of the reader's mapping is.
    const std::uint64_t* unitAt(std::uint32_t unit) { return reader->words() + unit; }

    struct OwnMapping : TableReader {
        explicit OwnMapping(TableMemory memory)
            : TableReader("tables", std::as_bytes(memory.bytes())), kept(std::move(memory)) {}
        const std::uint64_t* words() const { return wordsOf(kept.bytes()); }
        TableMemory kept;
    };

    SharedName name;
    TableWriter writer{TableMemory::sharedForWriting(name, enough), twoTables,
                       std::chrono::milliseconds(0)};
    std::optional<OwnMapping> reader;
};

TEST_F(InterruptedReader, ARecordThatIsReplacedWhileItIsReadIsLostAndNotTorn) {
    const TableRef ref = reader->entry(records, 1);
    const InMidRead interruption(unitAt(ref.unit()), [&] {
        for (std::uint64_t i = 0; i < 10; ++i) {
            commitRecord(100 + i);
        }
    });
    Words own(8);
    EXPECT_THROW(reader->read(ref, RecordKind::ipVia, own, "record at unit"), SnapshotLost);
    EXPECT_TRUE(interruption.happened());
    EXPECT_TRUE(reader->refresh());
    reader->read(reader->entry(records, 1), RecordKind::ipVia, own, "record at unit");
    EXPECT_EQ(own, Words(8, 109));
}

TEST_F(InterruptedReader, ARootThatIsReplacedWhileItIsReadGivesWayToTheNextOne) {
    commitRecord(2);
    const TableRef newest{headerOf(writer.memory()).current};
    const InMidRead interruption(unitAt(newest.unit()), [&] {
        for (std::uint64_t i = 0; i < 10; ++i) {
            commitRecord(100 + i);
        }
    });
    EXPECT_TRUE(reader->refresh());
    EXPECT_TRUE(interruption.happened());
    EXPECT_EQ(reader->generation(), writer.generation());
    EXPECT_EQ(OneSet::recordOf(*reader, 1), Words(8, 109));
}

} // namespace

} // namespace TableReaderTest
