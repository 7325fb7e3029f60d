#include "Published/Pseudowires.h"

#include <gtest/gtest.h>

#include "LocalTables.h"
#include "Tessel/Exceptions.h"

namespace PseudowiresTest {

namespace {

using L2::Pseudowire;

Pseudowire made(const std::string& name) {
    Pseudowire pseudowire;
    pseudowire.name = name;
    pseudowire.circuit = "eth7";
    pseudowire.neighbour = Lumo::IpGenAddr::fromText("10.255.0.4");
    pseudowire.id = 100;
    pseudowire.localLabel = 16;
    pseudowire.remoteLabel = 1048575;
    pseudowire.controlWord = false;
    pseudowire.localMtu = 1500;
    pseudowire.remoteMtu = 9000;
    pseudowire.state = Pseudowire::State::mtuMismatch;
    pseudowire.why = "because";
    pseudowire.adjacent = {Lumo::IpGenAddr::fromText("10.0.0.2"),
                           Lumo::IpGenAddr::fromText("2001:db8::2")};
    return pseudowire;
}

class PublishedPseudowires : public testing::Test {
  protected:
    void publish(const std::vector<Pseudowire>& all) {
        tables.change([&] { tables.publisher.pseudowires().pseudowiresAre(all); });
    }
    std::vector<Pseudowire> read() const { return L2::Pseudowires::read(*tables.reader); }

    TestSupport::LocalTables tables;
};

} // namespace

TEST_F(PublishedPseudowires, AreReadAsTheyWereWritten) {
    EXPECT_TRUE(read().empty());
    Pseudowire bare;
    bare.name = "two";
    const std::vector<Pseudowire> all{made("one"), bare, made("three")};
    publish(all);
    EXPECT_EQ(read(), all);
    EXPECT_EQ(tables.publisher.pseudowires().all(), all);
}

TEST_F(PublishedPseudowires, ReplaceThoseBefore) {
    publish({made("one"), made("two"), made("three")});
    publish({made("two")});
    EXPECT_EQ(read(), std::vector<Pseudowire>{made("two")});
    publish({});
    EXPECT_TRUE(read().empty());
}

TEST_F(PublishedPseudowires, TextsThatAreTooLongAreCut) {
    Pseudowire pseudowire = made(std::string(300, 'n'));
    pseudowire.adjacent.assign(30, Lumo::IpGenAddr::fromText("10.0.0.2"));
    publish({pseudowire});
    EXPECT_EQ(read().at(0).name, std::string(Pseudowire::maxText, 'n'));
    EXPECT_EQ(read().at(0).adjacent.size(), Pseudowire::maxNextHops);
    EXPECT_EQ(read().at(0).why, "because");
}

TEST_F(PublishedPseudowires, TooManyAreRefused) {
    const std::vector<Pseudowire> all(1001, made("one"));
    EXPECT_THROW(tables.publisher.pseudowires().pseudowiresAre(all), std::length_error);
}

TEST_F(PublishedPseudowires, DamageIsReported) {
    publish({made("one")});
    tables.entryOf(Mpls::TableId::pseudowires, 0) ^= 1;
    EXPECT_THROW(read(), Tessel::CorruptionDetected);
}

TEST_F(PublishedPseudowires, ARecordThatIsNoneIsReported) {
    publish({made("one")});
    Tessel::TableWriter& raw = const_cast<Tessel::TableWriter&>(tables.publisher.tables());
    const auto table = static_cast<std::size_t>(Mpls::TableId::pseudowires);
    const auto right = raw.record(raw.entry(table, 0)).subspan(1);
    const std::vector<std::uint64_t> words(right.begin(), right.end());
    for (std::size_t size = 0; size < words.size(); ++size) {
        raw.recordEntryIs(table, 0, Tessel::RecordKind::pseudowire, std::span(words).first(size));
        tables.commit();
        EXPECT_THROW(read(), Tessel::CorruptionDetected) << size;
        EXPECT_TRUE(tables.publisher.pseudowires().all().empty());
    }
    std::vector<std::uint64_t> state = words;
    state[2] |= std::uint64_t{0xff} << 8U;
    raw.recordEntryIs(table, 0, Tessel::RecordKind::pseudowire, state);
    tables.commit();
    EXPECT_THROW(read(), Tessel::CorruptionDetected);
}

} // namespace PseudowiresTest
