#include "Tables/TableChanges.h"

#include <algorithm>
#include <map>

#include "InMidRead.h"
#include "ShmTesting.h"

namespace TableChangesTest {

namespace {

using namespace ShmTesting;
using namespace Tessel::TableLayout;
using Tessel::SnapshotLost;
using Tessel::TableChanges;
using Tessel::TableMemory;
using Tessel::TableReader;
using Tessel::TableWriter;
using Keys = std::vector<std::uint32_t>;

Keys sorted(Keys keys) {
    std::sort(keys.begin(), keys.end());
    return keys;
}

/// What is found in all, a few pages at a time.
Keys lookAt(TableChanges& changes, std::size_t pagesAtATime = directoryPages) {
    Keys found;
    changes.restart();
    while (!changes.look(pagesAtATime, [&](std::uint32_t key) { found.push_back(key); })) {
    }
    return sorted(found);
}

class Changes : public testing::Test, public OneSet {};

class HurriedChanges : public testing::Test, public OneSet {
  protected:
    HurriedChanges() : OneSet(std::chrono::milliseconds(0)) {}
};

TEST_F(Changes, AreReportedFromWhatWasThereAtFirst) {
    recordIs(1, {1});
    recordIs(2, {2});
    commit();
    TableChanges changes(reader, records);
    EXPECT_EQ(lookAt(changes), Keys());
    recordIs(2, {22});
    recordIs(3, {3});
    writer.recordEntryDel(records, 1);
    valueIs(5, 55); // of another table
    EXPECT_EQ(lookAt(changes), Keys());
    writer.commit();
    EXPECT_EQ(lookAt(changes), Keys()); // not before the reader goes over to it
    reader->refresh();
    EXPECT_EQ(lookAt(changes), (Keys{1, 2, 3}));
    EXPECT_EQ(lookAt(changes), Keys());
    EXPECT_TRUE(changes.done());
}

TEST_F(Changes, AreFoundOnceOverAnyNumberOfGenerations) {
    Random random;
    TableChanges changes(reader, values);
    std::map<std::uint32_t, std::uint32_t> seen;
    std::map<std::uint32_t, std::uint32_t> now;
    for (int round = 0; round < 60; ++round) {
        const std::uint32_t generations = 1 + random.below(5);
        for (std::uint32_t i = 0; i < generations * 20; ++i) {
            const std::uint32_t key = random.below(4) * 200000 + random.below(1500);
            if (random.below(3) == 0) {
                writer.entryIs(values, key, {});
                now.erase(key);
            } else {
                now[key] = 1 + random.below(3);
                valueIs(key, now[key]);
            }
            if (i % 20 == 19) {
                commit();
            }
        }
        Keys expected;
        for (const auto* one : {&seen, &now}) {
            for (const auto& [key, value] : *one) {
                const auto before = seen.find(key);
                const auto after = now.find(key);
                if (before == seen.end() || after == now.end() || before->second != after->second) {
                    expected.push_back(key);
                }
            }
        }
        expected = sorted(expected);
        expected.erase(std::unique(expected.begin(), expected.end()), expected.end());
        ASSERT_EQ(lookAt(changes, 1 + random.below(3)), expected);
        seen = now;
    }
}

TEST_F(Changes, AreReportedAPageAtATime) {
    TableChanges changes(reader, values);
    for (const std::uint32_t key : {0U, 1U, 5000U, maxKey}) {
        valueIs(key, 7);
    }
    commit();
    Keys found;
    const auto look = [&] {
        found.clear();
        const bool all = changes.look(1, [&](std::uint32_t key) { found.push_back(key); });
        EXPECT_EQ(all, changes.done());
        return all;
    };
    changes.restart();
    EXPECT_FALSE(changes.done());
    EXPECT_FALSE(look());
    EXPECT_EQ(sorted(found), (Keys{0, 1}));
    EXPECT_FALSE(look());
    EXPECT_EQ(found, Keys{5000});
    EXPECT_TRUE(look());
    EXPECT_EQ(found, Keys{maxKey});
}

TEST_F(Changes, OfAGenerationCommittedMeanwhileAreReportedToo) {
    TableChanges changes(reader, values);
    valueIs(0, 7);
    valueIs(5000, 7);
    commit();
    Keys found;
    const auto look = [&] {
        return changes.look(1, [&](std::uint32_t key) { found.push_back(key); });
    };
    changes.restart();
    EXPECT_FALSE(look());
    valueIs(0, 8);
    commit();
    changes.restart();
    while (!look()) {
    }
    EXPECT_EQ(sorted(found), (Keys{0, 0, 5000}));
}

TEST_F(Changes, AKeyWhoseReportFailedIsReportedAgain) {
    TableChanges changes(reader, values);
    for (std::uint32_t key = 10; key < 15; ++key) {
        valueIs(key, 7);
    }
    commit();
    changes.restart();
    Keys found;
    bool failed = false;
    const auto tell = [&](std::uint32_t key) {
        if (found.size() == 2 && !failed) {
            failed = true;
            throw SnapshotLost("gone");
        }
        found.push_back(key);
    };
    EXPECT_THROW(changes.look(directoryPages, tell), SnapshotLost);
    EXPECT_FALSE(changes.done());
    EXPECT_TRUE(changes.look(directoryPages, tell));
    EXPECT_EQ(sorted(found), (Keys{10, 11, 12, 13, 14}));
}

TEST_F(Changes, OfADamagedPageAreRefusedOnceAndTheOthersReported) {
    TableChanges changes(reader, values);
    for (const std::uint32_t key : {0U, 5000U, 9000U}) {
        valueIs(key, 7);
    }
    writer.commit();
    reader->refresh();
    std::uint64_t& ref = wordsOf(
        writer.memory())[reader->root().tables[values].directory + 2 * (5000 / pageEntries)];
    ref ^= 1U;
    changes.restart();
    Keys found;
    const auto look = [&] {
        changes.look(directoryPages, [&](std::uint32_t key) { found.push_back(key); });
    };
    EXPECT_TRUE(corruption(look));
    EXPECT_FALSE(corruption(look));
    EXPECT_TRUE(changes.done());
    EXPECT_EQ(found, (Keys{0, 9000}));
    ref ^= 1U;
    valueIs(5001, 7);
    commit();
    changes.restart();
    look();
    EXPECT_EQ(sorted(found), (Keys{0, 5000, 5001, 9000}));
}

TEST_F(HurriedChanges, AreFoundAgainWhenTheGenerationIsLost) {
    TableChanges changes(reader, values);
    for (std::uint32_t i = 0; i < 5; ++i) {
        valueIs(i * 1024, 7);
        writer.commit();
        if (i == 1) {
            reader->refresh();
        }
    }
    changes.restart();
    EXPECT_THROW(changes.look(directoryPages, [](std::uint32_t) {}), SnapshotLost);
    reader->refresh();
    EXPECT_EQ(lookAt(changes), (Keys{0, 1024, 2048, 3072, 4096}));
}

TEST_F(HurriedChanges, AreReportedWhenAPageIsWhereItWasBefore) {
    valueIs(1, 1000);
    commit();
    TableChanges changes(reader, values);
    const std::uint32_t before = reader->pageOf(values, 1);
    bool stoodThere = false;
    for (std::uint32_t value = 1; value < 20; ++value) {
        for (const std::uint32_t offset : {100U, 200U, 300U, 400U}) {
            valueIs(1, offset + value);
            commit();
            if (reader->pageOf(values, 1) == before) {
                stoodThere = true;
                break;
            }
        }
        ASSERT_EQ(lookAt(changes), Keys{1});
    }
    EXPECT_TRUE(stoodThere);
}

/// The generation goes while a page is being looked at, and that page stays as it is: it was
/// another one that changed.
TEST(InterruptedChanges, AreNotForgottenWhenTheGenerationIsLostInTheMidstOfAPage) {
    const SharedName name;
    TableWriter writer(TableMemory::sharedForWriting(name, enough), twoTables,
                       std::chrono::milliseconds(0));
    const auto valueIs = [&](std::uint32_t key, std::uint32_t value) {
        writer.entryIs(values, key, sealed(value, entryPlace(values, key)));
        writer.commit();
    };
    valueIs(0, 1);
    const TableMemory mapping = TableMemory::sharedForReading(name);
    const auto reader = Tessel::make<TableReader>("tables", std::as_bytes(mapping.bytes()));
    TableChanges changes(reader, values);
    valueIs(5000, 7);
    reader->refresh();
    const std::uint32_t inMidPage = reader->pageOf(values, 5000) + pageEntries / 2;
    const InMidRead interruption(wordsOf(mapping.bytes()) + inMidPage, [&] {
        for (std::uint32_t i = 2; i < 10; ++i) {
            valueIs(0, i);
        }
    });
    changes.restart();
    EXPECT_THROW(changes.look(directoryPages, [](std::uint32_t) {}), SnapshotLost);
    EXPECT_TRUE(interruption.happened());
    reader->refresh();
    EXPECT_EQ(lookAt(changes), (Keys{0, 5000}));
}

TEST(ChangesAcrossWriters, TellOfAWholePageThatWasTakenOut) {
    const SharedName name;
    std::optional<TableWriter> writer;
    const auto start = [&] {
        writer.reset();
        writer.emplace(TableMemory::sharedForWriting(name, enough), twoTables, longTime);
    };
    start();
    for (const std::uint32_t key : {3U, 5000U, 5001U}) {
        writer->entryIs(values, key, sealed(7, entryPlace(values, key)));
    }
    writer->commit();
    const auto reader = Tessel::make<TableReader>(TableMemory::sharedForReading(name));
    TableChanges changes(reader, values);
    wordsOf(writer->memory())[reader->root().tables[values].directory + 2 * (5000 / pageEntries)] ^=
        1U;
    start();
    EXPECT_EQ(writer->repaired(), 1U);
    reader->refresh();
    EXPECT_EQ(lookAt(changes), (Keys{5000, 5001}));
    writer->entryIs(values, 5001, sealed(7, entryPlace(values, 5001)));
    writer->commit();
    reader->refresh();
    EXPECT_EQ(lookAt(changes), Keys{5001});
}

} // namespace

} // namespace TableChangesTest
