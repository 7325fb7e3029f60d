#pragma once

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Mpls/PackedVia.h"
#include "Published/InterfaceNames.h"
#include "Published/PublishedTables.h"
#include "Published/TablePublisher.h"
#include "ShmTesting.h"
#include "TableTesting.h"

namespace ShmTesting {

/// A set of tables with a record of every kind, copied to memory that ends right behind the last
/// unit in use, so that the address sanitizer sees every read beyond it.
class SmallTables {
  public:
    static constexpr std::uint32_t ipLabel = 100;
    static constexpr std::uint32_t lookupLabel = 101;
    static constexpr std::uint32_t multicastLabel = 102;
    static constexpr std::uint32_t hardwareLabel = 103;
    static constexpr std::uint32_t vrf = 7;

    /// What was read, by what was asked for: a value, or what was said instead of one.
    using Answers = std::map<std::string, std::string>;
    static constexpr const char* refused = "refused: ";

    SmallTables() {
        using namespace Mpls;
        using TableTesting::key;
        using TableTesting::swapVia;
        TablePublisher publisher(Tessel::TableMemory::ofProcess(enough),
                                 std::chrono::milliseconds(0));
        const std::vector<WeightedRecord> vias{swapVia(1400, 1), swapVia(1500, 2)};
        LfibWriter& lfib = publisher.lfib(TableId::transitLfib);
        lfib.routeIs(key(ipLabel), LfibViaType::ip, LfibViaSetType::unicast, vias);
        lfib.ipLookupRouteIs(key(lookupLabel), LfibViaType::ipLookup, "red", PayloadType::ipv4);
        LfibMulticastIpLookupVia tail;
        tail.vrfId = vrf;
        lfib.multicastIpLookupRouteIs(key(multicastLabel), tail, vias);
        publisher.hardware().routeIs({key(hardwareLabel), 5, true});
        publisher.hardware().adjacencyIs(5, *Hardware::Adjacency::create(vias, vias, true));
        publisher.mvpn().vrfIntfIdIs({vrf}, Lumo::IntfId("eth1"));
        publisher.commit();
        for (const char* name : {"eth1", "eth2", "eth3"}) { // raises the horizon
            publisher.interfaces().intfId(name);
            publisher.commit();
        }
        EXPECT_GT(headerOf(publisher.tables().memory()).horizon >> 16U, 0U);
        copy(publisher.tables().memory());
        whole_ = words;
    }

    /// Reads everything there is, each by itself. What a reader says when it cannot even open the
    /// tables represents all.
    Answers readAll() const {
        Answers answers;
        std::optional<Mpls::PublishedTables> tables;
        ask(answers, "opening", [&] {
            tables.emplace(Tessel::make<Tessel::TableReader>("tables", bytes()));
            return std::string("done");
        });
        if (tables) {
            readLfib(answers, *tables->lfib(Mpls::TableId::transitLfib));
            readHardware(answers, *tables->hardware());
            readOthers(answers, *tables);
        }
        return answers;
    }
    const Answers& readWhole() const {
        static const Answers answers = SmallTables().readAll();
        return answers;
    }

    std::span<const std::byte> bytes() const { return std::as_bytes(std::span(words)); }
    Tessel::TableLayout::TableHeader& header() {
        return *reinterpret_cast<Tessel::TableLayout::TableHeader*>(words.data());
    }
    Tessel::TableLayout::Root root() const { return Tessel::TableReader("tables", bytes()).root(); }
    /// Takes back everything that a test has written.
    void repair() { words = whole_; }

    std::vector<std::uint64_t> words;

  private:
    void copy(std::span<std::byte> memory) {
        const std::uint64_t end = Tessel::TableReader("tables", memory).root().heapUnits;
        words.assign(wordsOf(memory), wordsOf(memory) + end);
        header().regionBytes = words.size() * sizeof(std::uint64_t);
        header().check = checkOf(header());
    }

    template <typename Read>
    static void ask(Answers& answers, const std::string& what, Read&& read) {
        try {
            answers[what] = read();
        } catch (const Tessel::CorruptionDetected& corruption) {
            answers[what] = refused + std::string(corruption.what());
        } catch (const Tessel::RangeError& outOfRange) {
            answers[what] = refused + std::string(outOfRange.what());
        }
    }
    static std::string text(const Ovix::OvixMplsVia& via) {
        const Mpls::PackedVia packed(via);
        return {packed.bytes().begin(), packed.bytes().end()};
    }
    static std::string number(std::uint64_t value) { return std::to_string(value) + " "; }

    static void readLfib(Answers& answers, const Mpls::LfibStatus& lfib) {
        for (const std::uint32_t label : {ipLabel, lookupLabel, multicastLabel, 104U}) {
            const std::string route = "route " + std::to_string(label);
            Mpls::LfibViaSet set;
            ask(answers, route, [&] {
                set = lfib.viaSet(lfib.route(TableTesting::key(label)).viaSetKey);
                return number(static_cast<unsigned>(set.type)) + number(set.owner) +
                       number(set.flags) + number(set.viaKeys.size()) + number(set.members.size());
            });
            for (std::uint32_t i = label == ipLabel ? 0 : 1; i < set.members.size(); ++i) {
                ask(answers, route + " via " + std::to_string(i), [&] {
                    const auto via = lfib.ipVia(set.members[i]);
                    return via ? number(set.members[i].weight) + text(via)
                               : refused + lfib.lastCorruption();
                });
            }
            if (label == lookupLabel && !set.viaKeys.empty()) {
                ask(answers, "lookup", [&] {
                    const auto via = lfib.ipLookupVia(set.viaKeys[0]);
                    return number(static_cast<unsigned>(via.viaKey.viaType)) +
                           number(static_cast<unsigned>(via.payloadType)) +
                           std::string(via.vrfName.view());
                });
            }
            if (label == multicastLabel && !set.viaKeys.empty()) {
                ask(answers, "tail", [&] {
                    const auto via = lfib.multicastIpLookupVia(set.viaKeys[0]);
                    return number(via.index) + number(via.vrfId) + number(via.intfIdHigh) +
                           number(via.intfIdLow) + number(via.rpfId) + number(via.payloadType);
                });
            }
        }
        answers["routes"] = number(lfib.routes());
    }
    static void readHardware(Answers& answers, const Mpls::Hardware::Status& hardware) {
        for (const std::uint32_t label : {hardwareLabel, 104U}) {
            ask(answers, "hardware route " + std::to_string(label), [&] {
                const auto route = hardware.route(TableTesting::key(label));
                return number(route.routeKey.value()) + number(route.adjacencyKey) +
                       number(route.unprogrammed);
            });
        }
        ask(answers, "adjacency", [&] {
            const auto adjacency = hardware.adjacency(std::uint64_t{5});
            std::string all = adjacency ? number(adjacency->useBackups()) : "none";
            for (const bool backups : {false, true}) {
                for (std::uint32_t i = 0; adjacency && i < adjacency->entries(backups).size();
                     ++i) {
                    all += number(adjacency->entries(backups)[i].weight) +
                           text(adjacency->via(backups, i));
                }
            }
            return all;
        });
        answers["hardware routes"] = number(hardware.routes()) + number(hardware.adjacencies());
    }
    static void readOthers(Answers& answers, const Mpls::PublishedTables& tables) {
        for (const std::uint32_t id : {vrf, 8U}) {
            ask(answers, "vrf " + std::to_string(id), [&] {
                const auto entry = tables.mvpn()->vrfIntfId({id});
                return number(entry.vrfId.value) + number(entry.intfId.value());
            });
        }
        ask(answers, "names", [&] {
            const auto names = Interface::Names::read(tables.tables());
            std::string all;
            for (const char* name : {"eth1", "eth2", "eth3"}) {
                all += names.name(Lumo::IntfId(name)).empty() ? "- " : name;
            }
            // Damage is left out of the names without a report.
            return names.size() == 3 ? all : refused + all;
        });
    }

    std::vector<std::uint64_t> whole_;
};

} // namespace ShmTesting
