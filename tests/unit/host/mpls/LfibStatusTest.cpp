#include "Mpls/LfibStatus.h"

#include <cstring>
#include <optional>

#include "TableTesting.h"
#include "Tessel/Exceptions.h"

namespace {

using namespace TableTesting;
using namespace Mpls;
using Tessel::CorruptionDetected;

/// What opening or reading a table said, or nothing when it did not complain.
template <typename Action>
std::optional<std::string> corruption(Action&& action) {
    try {
        action();
    } catch (const CorruptionDetected& found) {
        return found.what();
    }
    return std::nullopt;
}

/// A table with one route of each kind, copied to memory that ends right behind its last record, so
/// that the address sanitizer sees every read beyond it.
class DamagedLfib : public testing::Test {
  protected:
    static constexpr std::uint32_t ipLabel = 100;
    static constexpr std::uint32_t lookupLabel = 101;
    static constexpr std::uint32_t multicastLabel = 102;

    DamagedLfib() {
        const std::vector<WeightedVia> vias{swapVia(1400, 1), swapVia(1500, 2)};
        LfibWriter writer("lfib", 4096);
        writer.ipLookupRouteIs(key(lookupLabel), LfibViaType::ipLookup, "red", PayloadType::ipv4);
        LfibMulticastIpLookupVia multicast;
        multicast.vrfId = 7;
        writer.multicastIpLookupRouteIs(key(multicastLabel), multicast);
        writer.routeIs(key(ipLabel), LfibViaType::ip, LfibViaSetType::unicast, vias);
        std::memcpy(&header_, writer.memory().data(), sizeof header_);
        const auto used =
            writer.memory().first(LfibLayout::heapOffset + header_.heapUnits * LfibLayout::unit);
        memory_.assign(used.begin(), used.end());
        header_.regionBytes = memory_.size();
        headerIs(header_);
        table_ = Tessel::make<LfibStatus>("lfib", memory_);
    }

    void headerIs(const LfibLayout::Header& header) {
        std::memcpy(memory_.data(), &header, sizeof header);
    }
    std::byte* unitAt(std::uint32_t unit) {
        return memory_.data() + LfibLayout::heapOffset + std::size_t{unit} * LfibLayout::unit;
    }
    LfibViaSet setOf(std::uint32_t label) const {
        return table_->viaSet(table_->route(key(label)).viaSetKey);
    }
    std::byte* setRecord(std::uint32_t label) {
        return unitAt(LfibLayout::unitOf(table_->route(key(label)).viaSetKey));
    }
    /// Reads everything there is, following what was read.
    void readAll() const {
        for (const std::uint32_t label : {ipLabel, lookupLabel, multicastLabel}) {
            LfibViaSet set;
            try {
                set = setOf(label);
            } catch (const CorruptionDetected&) {
            } catch (const Tessel::RangeError&) {
            }
            for (const LfibWeightedVia& member : set.members.view()) {
                EXPECT_NO_THROW(table_->ipVia(member.viaIndex));
            }
            for (const LfibViaKey& viaKey : set.viaKeys.view()) {
                corruption([&] { table_->ipLookupVia(viaKey); });
                corruption([&] { table_->multicastIpLookupVia(viaKey); });
            }
        }
    }

    LfibLayout::Header header_{};
    std::vector<std::byte> memory_;
    Ptr<LfibStatus> table_;
};

TEST_F(DamagedLfib, EveryBitThatSaysWhatTheTableIsMatters) {
    struct Part {
        const char* named;
        std::size_t offset;
        std::size_t size;
    };
    const std::vector<Part> parts = {
        {"magic", offsetof(LfibLayout::Header, magic), 8},
        {"version", offsetof(LfibLayout::Header, version), 4},
        {"region size", offsetof(LfibLayout::Header, regionBytes), 8},
        // The type's name and its end; what stands behind that is padding.
        {"table of type", offsetof(LfibLayout::Header, typeName),
         LfibStatus::entityTypeName.size() + 1},
    };
    for (const Part& part : parts) {
        for (std::size_t i = 0; i < part.size * 8; ++i) {
            std::byte& at = memory_[part.offset + i / 8];
            at ^= std::byte{1} << (i % 8);
            const auto said = corruption([&] { LfibStatus("other", memory_); });
            ASSERT_TRUE(said) << part.named << " bit " << i;
            EXPECT_NE(said->find(part.named), std::string::npos) << *said;
            at ^= std::byte{1} << (i % 8);
        }
    }
    EXPECT_FALSE(corruption([&] { LfibStatus("other", memory_); }));
}

TEST_F(DamagedLfib, MemoryOfAnotherSizeIsNoTable) {
    const std::span<const std::byte> whole(memory_);
    for (const std::size_t size : {std::size_t{0}, std::size_t{63}, LfibLayout::indexOffset,
                                   LfibLayout::heapOffset, memory_.size() - 1}) {
        EXPECT_TRUE(corruption([&] { LfibStatus("other", whole.first(size)); })) << size;
    }
}

TEST_F(DamagedLfib, AHeapThatEndsTooEarlyOrTooLateIsFoundOnReading) {
    const LfibViaSet whole = setOf(ipLabel);
    for (const std::uint32_t units :
         {std::uint32_t{0}, std::uint32_t{1}, LfibLayout::unitOf(whole.key), header_.heapUnits + 1,
          std::uint32_t{0xffffffff}}) {
        LfibLayout::Header damaged = header_;
        damaged.heapUnits = units;
        headerIs(damaged);
        EXPECT_TRUE(corruption([&] { setOf(ipLabel); })) << units;
        EXPECT_FALSE(table_->ipVia(0));
    }
    headerIs(header_);
    EXPECT_TRUE(setOf(ipLabel).isEq(whole));
}

TEST_F(DamagedLfib, ListCountsAreCheckedAgainstTheCapacityAndTheRecord) {
    for (const std::size_t counted : {offsetof(LfibLayout::ViaSetRecord, viaKeys),
                                      offsetof(LfibLayout::ViaSetRecord, members)}) {
        std::byte* at = setRecord(ipLabel) + sizeof(LfibLayout::RecordHeader) + counted;
        for (const std::uint16_t count : {std::uint16_t{600}, std::uint16_t{0xffff}}) {
            std::memcpy(at, &count, sizeof count);
            EXPECT_THROW(setOf(ipLabel), Tessel::RangeError);
        }
        const std::uint16_t most = 599;
        std::memcpy(at, &most, sizeof most);
        const auto said = corruption([&] { setOf(ipLabel); });
        ASSERT_TRUE(said);
        EXPECT_NE(said->find("via set lists"), std::string::npos) << *said;
        const std::uint16_t one = 1;
        std::memcpy(at, &one, sizeof one);
    }
}

TEST_F(DamagedLfib, ARecordOfAnotherKindIsNotTakenForOne) {
    const std::uint32_t ip = setOf(ipLabel).members[0].viaIndex;
    const LfibViaKey lookup = setOf(lookupLabel).viaKeys[0];
    const LfibViaKey multicast = setOf(multicastLabel).viaKeys[0];
    LfibViaKey ipKey;
    ipKey.index = ip;
    EXPECT_TRUE(corruption([&] { table_->ipLookupVia(ipKey); }));
    EXPECT_TRUE(corruption([&] { table_->ipLookupVia(multicast); }));
    EXPECT_TRUE(corruption([&] { table_->multicastIpLookupVia(ipKey); }));
    EXPECT_TRUE(corruption([&] { table_->multicastIpLookupVia(lookup); }));
    EXPECT_TRUE(corruption([&] { table_->viaSet(LfibLayout::viaSetKey(ip, 1)); }));
    EXPECT_EQ(table_->corruptionsDetected(), 0U);
    EXPECT_FALSE(table_->ipVia(lookup.index));
    EXPECT_FALSE(table_->ipVia(multicast.index));
    EXPECT_EQ(table_->corruptionsDetected(), 2U);
    EXPECT_EQ(table_->lastCorruption(),
              "lfib: IP via at unit " + std::to_string(multicast.index) + " cannot be right");
}

TEST_F(DamagedLfib, AVrfNameIsCheckedAgainstItsRecord) {
    const LfibViaKey lookup = setOf(lookupLabel).viaKeys[0];
    std::byte& length = unitAt(lookup.index)[sizeof(LfibLayout::RecordHeader) + 1];
    for (const unsigned wrong : {7U, 100U, 101U, 255U}) {
        length = static_cast<std::byte>(wrong);
        EXPECT_TRUE(corruption([&] { table_->ipLookupVia(lookup); })) << wrong;
    }
    length = std::byte{2};
    EXPECT_EQ(table_->ipLookupVia(lookup).vrfName.view(), "re");
}

TEST_F(DamagedLfib, NoDamageOfARecordLeadsOutOfTheTable) {
    const std::vector<std::byte> whole = memory_;
    for (std::size_t at = LfibLayout::heapOffset; at < memory_.size(); ++at) {
        for (unsigned i = 0; i < 10; ++i) {
            memory_[at] =
                i < 8 ? whole[at] ^ (std::byte{1} << i) : (i == 8 ? std::byte{0} : std::byte{0xff});
            readAll();
        }
        memory_[at] = whole[at];
    }
    EXPECT_TRUE(table_->ipVia(setOf(ipLabel).members[1].viaIndex).isEq(swapVia(1500).via));
}

TEST_F(DamagedLfib, NoDamageOfTheIndexLeadsOutOfTheTable) {
    const std::uint64_t whole = table_->route(key(ipLabel)).viaSetKey.value;
    std::byte* entry = memory_.data() + LfibLayout::indexOffset + ipLabel * sizeof(std::uint64_t);
    for (unsigned i = 0; i < 64; ++i) {
        const std::uint64_t damaged = whole ^ (std::uint64_t{1} << i);
        std::memcpy(entry, &damaged, sizeof damaged);
        readAll();
        if (i >= 32) { // another serial number: what the key named has gone
            EXPECT_TRUE(setOf(ipLabel).isEq(LfibViaSet()));
        }
    }
}

} // namespace
