#include "ShmTesting.h"

namespace TakeOverTest {

namespace {

using namespace ShmTesting;
using namespace Tessel::TableLayout;
using Tessel::TableDescription;
using Tessel::TableMemory;
using Tessel::TableReader;
using Tessel::TableWriter;

/// Tables under a name, whose writers come and go.
class TakeOver : public testing::Test {
  protected:
    TakeOver() { start(); }

    void start(std::span<const TableDescription> tables = twoTables) {
        writer.reset();
        writer.emplace(TableMemory::sharedForWriting(name, enough), tables, longTime);
    }
    void recordIs(std::uint32_t key, const Words& own) {
        writer->recordEntryIs(records, key, RecordKind::ipVia, own);
    }
    void valueIs(std::uint32_t key, std::uint32_t value) {
        writer->entryIs(values, key, sealed(value, entryPlace(values, key)));
    }
    Ptr<TableReader> open() const {
        return Tessel::make<TableReader>(TableMemory::sharedForReading(name));
    }
    std::uint64_t* words() { return wordsOf(writer->memory()); }
    /// Where a key's entry stands.
    std::uint64_t& entryOf(std::size_t table, std::uint32_t key) {
        return words()[open()->pageOf(table, key) + key % pageEntries];
    }
    std::uint64_t& pageRefOf(std::size_t table, std::uint32_t key) {
        return words()[open()->root().tables[table].directory + 2 * (key / pageEntries)];
    }

    SharedName name;
    std::optional<TableWriter> writer;
};

TEST_F(TakeOver, GoesOnWhereTheLastWriterLeftOff) {
    recordIs(1, {11});
    recordIs(2000, {22});
    valueIs(5, 55);
    writer->commit();
    const std::uint64_t generation = writer->generation();
    const std::size_t used = writer->usedBytes();
    const Ptr<TableReader> reader = open();
    start();
    EXPECT_EQ(writer->generation(), generation);
    EXPECT_EQ(writer->usedBytes(), used);
    EXPECT_EQ(writer->entries(records), 2U);
    EXPECT_EQ(writer->repaired(), 0U);
    EXPECT_FALSE(writer->changed());
    EXPECT_FALSE(reader->refresh());
    recordIs(1, {12});
    writer->commit();
    EXPECT_EQ(OneSet::recordOf(*reader, 1), Words{11}); // as long as it holds that generation
    EXPECT_TRUE(reader->refresh());
    EXPECT_EQ(reader->generation(), generation + 1);
    EXPECT_EQ(OneSet::recordOf(*reader, 1), Words{12});
    EXPECT_EQ(OneSet::recordOf(*reader, 2000), Words{22});
    EXPECT_EQ(reader->entry(values, 5).unit(), 55U);
}

TEST_F(TakeOver, WhatWasNotCommittedIsNotThereAndItsRoomIsUsedAgain) {
    recordIs(1, {11});
    writer->commit();
    const std::size_t used = writer->usedBytes();
    const std::uint64_t end = open()->root().heapUnits;
    for (int round = 0; round < 20; ++round) {
        recordIs(1, Words(100));
        recordIs(5000, Words(1000));
        writer->recordEntryDel(records, 1);
        start();
        ASSERT_EQ(writer->usedBytes(), used);
        ASSERT_EQ(writer->entries(records), 1U);
        ASSERT_EQ(OneSet::recordOf(*open(), 1), Words{11});
        ASSERT_EQ(OneSet::recordOf(*open(), 5000), Words());
    }
    recordIs(1, {12});
    writer->commit();
    EXPECT_LE(open()->root().heapUnits, end + 4 * pageEntries);
}

TEST_F(TakeOver, TablesThatWereNeverFinishedAreMadeAgain) {
    headerOf(writer->memory()).magic = 0;
    start();
    EXPECT_EQ(writer->entries(records), 0U);
    EXPECT_EQ(open()->generation(), writer->generation());
}

TEST_F(TakeOver, OtherTablesAreRefusedByName) {
    const auto refuses = [&](std::vector<TableDescription> tables, const std::string& expected) {
        const auto said = corruption([&] { start(tables); });
        EXPECT_EQ(said.value_or("nothing"), name.text() + expected);
    };
    refuses({twoTables[1], twoTables[0]}, ": tables in another order");
    refuses({twoTables[0], {"test/values", "Test::Others", {}}},
            ": test/values: table of type \"Test::Values\" is not a Test::Others");
    refuses({twoTables[0], twoTables[1], {"test/more", "Test::More", {}}},
            ": has no table test/more");
    start();
}

TEST_F(TakeOver, ADamagedEntryIsRemovedAndTheOthersStay) {
    for (std::uint32_t key = 0; key < 2000; ++key) {
        recordIs(key, {key});
        valueIs(key, key);
    }
    writer->commit();
    entryOf(records, 7) ^= 1U;
    entryOf(values, 8) ^= 1U;
    words()[TableRef{entryOf(records, 9)}.unit() + 1] ^= 1U;
    const std::uint64_t generation = writer->generation();
    start();
    EXPECT_EQ(writer->repaired(), 3U);
    EXPECT_EQ(writer->generation(), generation + 1);
    EXPECT_EQ(writer->entries(records), 1998U);
    EXPECT_EQ(writer->entries(values), 1999U);
    const Ptr<TableReader> reader = open();
    for (std::uint32_t key = 0; key < 2000; ++key) {
        const bool gone = key == 7 || key == 9;
        ASSERT_EQ(OneSet::recordOf(*reader, key), gone ? Words() : Words{key});
        ASSERT_EQ(reader->entry(values, key).unit(), key == 8 ? 0 : key);
    }
    start();
    EXPECT_EQ(writer->repaired(), 0U);
}

TEST_F(TakeOver, ADamagedPageIsRemovedAndTheOthersStay) {
    for (std::uint32_t key = 0; key < 3000; ++key) {
        recordIs(key, {key});
    }
    writer->commit();
    pageRefOf(records, 1500) ^= 1U;
    start();
    EXPECT_EQ(writer->repaired(), 1U);
    EXPECT_EQ(writer->entries(records), 3000 - pageEntries);
    const Ptr<TableReader> reader = open();
    EXPECT_EQ(reader->entries(records), 3000 - pageEntries);
    EXPECT_EQ(OneSet::recordOf(*reader, 1023), Words{1023});
    EXPECT_EQ(OneSet::recordOf(*reader, 1500), Words());
    EXPECT_EQ(OneSet::recordOf(*reader, 2048), Words{2048});
    recordIs(1500, {15});
    writer->commit();
    EXPECT_EQ(OneSet::recordOf(*open(), 1500), Words{15});
}

TEST_F(TakeOver, ADamagedRootOrHeaderIsNotTakenOver) {
    recordIs(1, {11});
    writer->commit();
    const std::vector<std::byte> whole(writer->memory().begin(), writer->memory().begin() + 65536);
    struct Damage {
        const char* what;
        std::size_t word;
        std::uint64_t change;
    };
    const std::uint64_t current = headerOf(writer->memory()).current;
    const std::vector<Damage> damages = {
        {"magic", 0, 1},
        {"version", offsetof(TableHeader, version) / 8, 1},
        {"check of the header", offsetof(TableHeader, check) / 8, 1},
        {"root at unit", offsetof(TableHeader, current) / 8, 1},
        {"root at unit", offsetof(TableHeader, current) / 8, current}, // none at all
        {"horizon", offsetof(TableHeader, horizon) / 8, 1},
    };
    for (const Damage& damage : damages) {
        words()[damage.word] ^= damage.change;
        const auto said = corruption([&] { start(); });
        ASSERT_TRUE(said) << damage.what;
        EXPECT_NE(said->find(damage.what), std::string::npos) << *said;
        TableMemory repair = TableMemory::sharedForWriting(name);
        std::copy(whole.begin(), whole.end(), repair.bytes().begin());
        repair = TableMemory::none();
        start();
    }
}

TEST_F(TakeOver, TwoKeysOfOneRecordDoNotMakeTwoRecordsOfOneRoom) {
    recordIs(1, {11});
    writer->entryIs(records, 2, writer->entry(records, 1)); // a writer that lies
    writer->commit();
    start();
    for (std::uint64_t value : {1U, 2U, 3U}) { // released, and its room used again
        recordIs(1, {value});
        recordIs(2, {100 + value});
        writer->commit();
    }
    writer.reset();
    writer.emplace(TableMemory::sharedForWriting(name), twoTables, std::chrono::milliseconds(0));
    for (std::uint32_t value = 4; value < 10; ++value) {
        recordIs(1, {value});
        recordIs(2, {100 + value});
        recordIs(3, {200 + value});
        writer->commit();
        const Ptr<TableReader> reader = open();
        ASSERT_EQ(OneSet::recordOf(*reader, 1), Words{value});
        ASSERT_EQ(OneSet::recordOf(*reader, 2), Words{100 + value});
        ASSERT_EQ(OneSet::recordOf(*reader, 3), Words{200 + value});
    }
}

TEST_F(TakeOver, APageInTheHeaderIsNone) {
    recordIs(1, {11});
    writer->commit();
    pageRefOf(records, 5000) = sealed(0, pagePlace(records, 5000 / pageEntries)).word; // a lie
    EXPECT_TRUE(corruption([&] { open()->entry(records, 5000); }));
    start();
    EXPECT_EQ(writer->repaired(), 1U);
    EXPECT_EQ(OneSet::recordOf(*open(), 1), Words{11});
}

} // namespace

} // namespace TakeOverTest
