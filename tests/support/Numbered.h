#pragma once

#include <algorithm>

#include "Published/PublishedTables.h"
#include "Published/TablePublisher.h"
#include "ShmTesting.h"
#include "TableTesting.h"

namespace ShmTesting {

/// Batches of routes that all carry the number of their batch: in their via's label, in their
/// hardware route and in that one's adjacency. So it can be seen whether what is read belongs
/// together.
class NumberedRoutes {
  public:
    static constexpr std::uint32_t firstLabel = 1000;

    explicit NumberedRoutes(std::uint32_t count) : count_(count) {}

    /// Replaces every route. The records are of another size with every number.
    void write(Mpls::TablePublisher& publisher, std::uint32_t number) const {
        using namespace Mpls;
        std::vector<WeightedRecord> vias(1 + number % 3, TableTesting::swapVia());
        for (WeightedRecord& via : vias) {
            EXPECT_TRUE(via.via.labelsIs(std::vector<std::uint8_t>{
                static_cast<std::uint8_t>(number >> 16U), static_cast<std::uint8_t>(number >> 8U),
                static_cast<std::uint8_t>(number)}));
        }
        for (std::uint32_t i = 0; i < count_; ++i) {
            const RouteKey key = TableTesting::key(firstLabel + i);
            publisher.lfib(TableId::transitLfib)
                .routeIs(key, LfibViaType::ip, LfibViaSetType::unicast, vias);
            publisher.hardware().routeIs({key, number, false});
        }
        publisher.hardware().adjacencyDel(number - 1);
        publisher.hardware().adjacencyIs(number, *Hardware::Adjacency::create(vias, {}, false));
    }

    /// The number that every route of the generation held carries; 0 when there are no routes.
    /// Throws std::logic_error when two differ or one is missing, and what reading throws.
    std::uint32_t read(const Mpls::PublishedTables& tables) const {
        const auto& lfib = *tables.lfib(Mpls::TableId::transitLfib);
        const auto& hardware = *tables.hardware();
        if (lfib.routes() == 0 && hardware.routes() == 0) {
            return 0;
        }
        const std::uint32_t number = numberOf(tables, firstLabel);
        for (std::uint32_t i = 0; i < count_; ++i) {
            const Mpls::RouteKey key = TableTesting::key(firstLabel + i);
            belongs(numberOf(tables, firstLabel + i) == number, "via");
            const auto route = hardware.route(key);
            belongs(route.routeKey == key && route.adjacencyKey == number, "hardware route");
            const auto& adjacency = hardware.adjacency(route);
            belongs(adjacency && numberIn(adjacency->via(false, 0)) == number, "adjacency");
        }
        belongs(lfib.routes() == count_ && hardware.routes() == count_ &&
                    hardware.adjacencies() == 1,
                "count");
        belongs(tables.corruptionsDetected() == 0, "corruption");
        return number;
    }
    static std::uint32_t numberOf(const Mpls::PublishedTables& tables, std::uint32_t label) {
        const auto& lfib = *tables.lfib(Mpls::TableId::transitLfib);
        const auto set = lfib.viaSet(lfib.route(TableTesting::key(label)).viaSetKey);
        const std::uint32_t number = set.members.empty() ? 0 : numberIn(lfib.ipVia(set.members[0]));
        belongs(set.members.size() == (set.members.empty() ? 0 : 1 + number % 3), "members");
        return number;
    }

  private:
    static std::uint32_t numberIn(const Ovix::OvixMplsVia& via) {
        const std::string_view packed = via.labels.view();
        std::uint32_t number = 0;
        for (const char byte : packed) {
            number = number << 8U | static_cast<std::uint8_t>(byte);
        }
        return number;
    }
    static void belongs(bool right, const char* what) {
        if (!right) {
            throw std::logic_error(what);
        }
    }

    std::uint32_t count_;
};

/// A reader that keeps checking, whenever asked to, that what it holds belongs together and is
/// never older than what it has seen.
class CheckingReader {
  public:
    CheckingReader(Ptr<Tessel::TableReader> reader, std::uint32_t routes)
        : tables_(std::move(reader)), routes_(routes) {}

    void check() {
        try {
            tables_.refresh();
            const std::uint32_t number = routes_.read(tables_);
            EXPECT_GE(number, last_);
            last_ = number;
            ++checks_;
        } catch (const Tessel::SnapshotLost&) {
            ++lost_;
        } catch (const std::exception& wrong) {
            ADD_FAILURE() << "generation " << tables_.tables().generation() << ": " << wrong.what();
        }
    }
    /// What every route carried when last checked.
    std::uint32_t last() const { return last_; }
    std::size_t checks() const { return checks_; }
    std::size_t lost() const { return lost_; }
    Mpls::PublishedTables& tables() { return tables_; }

  private:
    Mpls::PublishedTables tables_;
    NumberedRoutes routes_;
    std::uint32_t last_ = 0;
    std::size_t checks_ = 0;
    std::size_t lost_ = 0;
};

} // namespace ShmTesting
