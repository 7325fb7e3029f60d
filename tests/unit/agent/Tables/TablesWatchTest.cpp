#include "Tables/TablesWatch.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>

#include "Published/TablePublisher.h"
#include "ShmTesting.h"
#include "TableTesting.h"
#include "Tables/TableFiles.h"
#include "Tessel/Exceptions.h"

namespace TablesWatchTest {

namespace {

using namespace OvixAgent;
using Mpls::TableId;
using TableTesting::key;
using TableTesting::swapVia;
using Tessel::TableMemory;
using Tessel::TableReader;
using News = TablesWatch::News;

/// Tables in a file, and a reader that watches them.
class Watch : public testing::Test {
  protected:
    /// As a writer that comes and goes.
    void write(const std::vector<std::uint32_t>& labels, std::uint32_t mtu = 1400) const {
        Mpls::TablePublisher publisher(TableMemory::sharedForWriting(name));
        for (const std::uint32_t label : labels) {
            publisher.lfib(TableId::transitLfib)
                .routeIs(key(label), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::unicast,
                         std::vector{swapVia(mtu)});
        }
        publisher.commit();
    }
    std::string file() const { return Tessel::TableFiles::directory() + "/" + name.text(); }
    /// What is reported once enough time has passed.
    News look() { return watch.look(now += TablesWatch::every); }
    std::uint32_t mtuOf(std::uint32_t label) {
        const auto& transit = published.lfib(TableId::transitLfib);
        const Mpls::LfibViaSet set = transit->viaSet(transit->route(key(label)).viaSetKey);
        return set.members.empty() ? 0 : transit->ipVia(set.members[0]).nexthopMtu;
    }
    /// The labels that differ from what was there when this was called last.
    std::vector<std::uint32_t> changed() {
        std::vector<std::uint32_t> labels;
        changes.restart();
        while (!changes.look(1, [&](std::uint32_t label) { labels.push_back(label); })) {
        }
        std::sort(labels.begin(), labels.end());
        return labels;
    }
    std::string line(const std::string& what) const {
        return "tables \"" + name.text() + "\": " + what;
    }

    const ShmTesting::SharedName name;
    TablesWatch::Clock::time_point now{};

  private:
    Ptr<TableReader> open() const {
        write({100, 101});
        return Tessel::make<TableReader>(TableMemory::sharedForReading(name));
    }
    Ptr<TableReader> reader = open();

  protected:
    Mpls::PublishedTables published{reader};
    Tessel::TableChanges changes{reader, static_cast<std::size_t>(TableId::transitLfib)};
    TablesWatch watch{published};
};

} // namespace

TEST_F(Watch, NothingIsSaidOfAFileThatStaysAndChanges) {
    EXPECT_EQ(look(), News());
    write({102});
    EXPECT_EQ(look(), News());
    EXPECT_EQ(watch.problem(), "");
    published.refresh();
    EXPECT_EQ(mtuOf(102), 1400U);
}

TEST_F(Watch, ARemovedFileIsSaidOnceAndItsTablesStay) {
    std::filesystem::remove(file());
    EXPECT_EQ(look(), News{line("the file has been removed; forwarding goes on by what it held")});
    EXPECT_EQ(look(), News());
    EXPECT_EQ(watch.problem(), "the file has been removed; forwarding goes on by what it held");
    EXPECT_EQ(mtuOf(100), 1400U);
}

TEST_F(Watch, ANewFileTakesThePlaceOfARemovedOne) {
    std::filesystem::remove(file());
    look();
    write({100, 200});
    EXPECT_EQ(look(), News{line("gone over to the new file, generation 2")});
    EXPECT_EQ(watch.problem(), "");
    EXPECT_EQ(mtuOf(101), 0U);
    EXPECT_EQ(mtuOf(200), 1400U);
    EXPECT_EQ(look(), News());
    write({201}); // which is followed from now on
    published.refresh();
    EXPECT_EQ(mtuOf(201), 1400U);
}

// Generations of the new file have the numbers of the old one's.
TEST_F(Watch, WhatDiffersInANewFileIsReportedAsChanged) {
    EXPECT_EQ(changed(), std::vector<std::uint32_t>());
    std::filesystem::remove(file());
    write({100, 101}, 1300);
    look();
    EXPECT_EQ(mtuOf(100), 1300U);
    EXPECT_EQ(changed(), (std::vector<std::uint32_t>{100, 101}));
}

TEST_F(Watch, ThoseReplacedWhileNobodyLookedAreFollowedToo) {
    const std::string other = file() + "-other";
    std::filesystem::rename(file(), other);
    write({300});
    EXPECT_EQ(look(), News{line("gone over to the new file, generation 2")});
    EXPECT_EQ(mtuOf(300), 1400U);
    std::filesystem::rename(other, file());
    EXPECT_EQ(look(), News{line("gone over to the new file, generation 2")});
    EXPECT_EQ(mtuOf(100), 1400U);
}

TEST_F(Watch, ACutFileIsSaidBeforeItIsReadAndFollowedWhenMadeAnew) {
    std::filesystem::resize_file(file(), 0);
    const News news = look();
    ASSERT_EQ(news.size(), 1U);
    EXPECT_NE(news[0].find("the file has been cut short"), std::string::npos);
    EXPECT_THROW(mtuOf(100), Tessel::CorruptionDetected);
    published.refresh();
    EXPECT_NE(look().at(0).find("damage met"), std::string::npos);
    std::filesystem::remove(file());
    write({100}, 1300);
    EXPECT_EQ(look(), News{line("gone over to the new file, generation 2")});
    EXPECT_EQ(mtuOf(100), 1300U);
    EXPECT_EQ(watch.problem(), "");
}

// Nothing is read in between, so that the memory stays mapped and holds the new tables.
TEST_F(Watch, TablesBegunAnewInTheSameFileAreNotTakenForTheFormer) {
    changed();
    std::filesystem::resize_file(file(), 0);
    std::filesystem::resize_file(file(), TableMemory::defaultBytes);
    write({100, 101}, 1300);
    published.refresh();
    EXPECT_EQ(mtuOf(100), 1300U);
    EXPECT_EQ(changed(), (std::vector<std::uint32_t>{100, 101}));
    EXPECT_EQ(look(), News());
}

TEST_F(Watch, AFileThatHoldsNoTablesIsWaitedFor) {
    std::filesystem::remove(file());
    const int made = ::open(file().c_str(), O_CREAT | O_RDWR, 0640);
    ASSERT_EQ(::write(made, "no table", 8), 8);
    EXPECT_NE(look().at(0).find("another file has the name, and cannot be used"),
              std::string::npos);
    EXPECT_NE(watch.problem(), "");
    EXPECT_EQ(look(), News());
    EXPECT_EQ(mtuOf(100), 1400U);
    ::close(made);
    std::filesystem::remove(file());
    write({100}, 1300);
    EXPECT_EQ(look().size(), 1U);
    EXPECT_EQ(mtuOf(100), 1300U);
}

TEST_F(Watch, ItLooksAFewTimesASecond) {
    look();
    std::filesystem::remove(file());
    EXPECT_EQ(watch.look(now + TablesWatch::every / 2), News());
    EXPECT_EQ(look().size(), 1U);
}

} // namespace TablesWatchTest
