#pragma once

#include <memory>
#include <string>

#include "Published/PublishedTables.h"
#include "Published/TablePublisher.h"

namespace TestSupport {

/// Goes over to the newest generation and reports all of its changes.
inline void refreshWholly(Mpls::PublishedTables& tables) {
    for (std::size_t page = 0; page <= 2 * Tessel::TableLayout::directoryPages; ++page) {
        tables.refresh();
    }
}

/// A set of tables in this process, both sides of it.
class LocalTables {
  public:
    static constexpr std::size_t enough = std::size_t{64} << 20U;

    explicit LocalTables(std::size_t bytes = enough)
        : publisher(Tessel::TableMemory::ofProcess(bytes)),
          reader(Tessel::make<Tessel::TableReader>("tables", publisher.tables().memory())),
          published(reader) {}

    /// Makes the changes visible and tells of them.
    void commit() {
        published.noticeSubscribers();
        publisher.commit();
        refreshWholly(published);
    }
    /// Makes a change visible, or takes it back when it throws.
    template <typename Change>
    void change(Change&& make) {
        try {
            make();
        } catch (...) {
            publisher.discard();
            throw;
        }
        commit();
    }

    // The words of the tables where they stand, for a test to damage.
    std::uint64_t* words() const {
        return reinterpret_cast<std::uint64_t*>(publisher.tables().memory().data());
    }
    /// What refers to the page of a key.
    std::uint64_t& pageRefOf(Mpls::TableId table, std::uint32_t key) const {
        return words()[reader->root().tables[static_cast<std::size_t>(table)].directory +
                       2 * (key / Tessel::TableLayout::pageEntries)];
    }
    std::uint64_t& entryOf(Mpls::TableId table, std::uint32_t key) const {
        return words()[reader->pageOf(static_cast<std::size_t>(table), key) +
                       key % Tessel::TableLayout::pageEntries];
    }

    Mpls::TablePublisher publisher;
    Ptr<Tessel::TableReader> reader;
    Mpls::PublishedTables published;
};

/// One LFIB of a set of tables, each change of which is visible at once.
class LocalLfib {
  public:
    explicit LocalLfib(Mpls::TableId table = Mpls::TableId::transitLfib,
                       std::shared_ptr<LocalTables> tables = std::make_shared<LocalTables>())
        : tables_(std::move(tables)), table_(table) {}

    const Ptr<Mpls::LfibStatus>& status() const { return tables_->published.lfib(table_); }

    void routeIs(Mpls::RouteKey key, Mpls::LfibViaType viaType, Mpls::LfibViaSetType setType,
                 std::span<const Mpls::WeightedRecord> vias) {
        tables_->change([&] { writer().routeIs(key, viaType, setType, vias); });
    }
    void ipLookupRouteIs(Mpls::RouteKey key, Mpls::LfibViaType viaType, const L3::VrfName& vrf,
                         Mpls::PayloadType payload) {
        tables_->change([&] { writer().ipLookupRouteIs(key, viaType, vrf, payload); });
    }
    void multicastIpLookupRouteIs(Mpls::RouteKey key, const Mpls::LfibMulticastIpLookupVia& via,
                                  std::span<const Mpls::WeightedRecord> branches = {}) {
        tables_->change([&] { writer().multicastIpLookupRouteIs(key, via, branches); });
    }
    void rawRouteIs(Mpls::RouteKey key, const Mpls::LfibViaSet& set) {
        tables_->change([&] { writer().rawRouteIs(key, set); });
    }
    void routeDel(Mpls::RouteKey key) {
        tables_->change([&] { writer().routeDel(key); });
    }
    /// The words of a route's via set where they stand, its header first, for a test to damage.
    std::uint64_t* viaSetWords(Mpls::RouteKey key) const {
        return tables_->words() + Tessel::TableRef{status()->route(key).viaSetKey.value}.unit();
    }
    /// Makes what the test has written there pass for what a writer meant.
    void reseal(Mpls::RouteKey key) const {
        std::uint64_t* at = viaSetWords(key);
        const auto head = Tessel::TableLayout::RecordHeader::of(*at);
        const auto [word, ref] = Tessel::TableWriter::seal(
            static_cast<std::uint32_t>(at - tables_->words()), Tessel::RecordKind::viaSet,
            {at + 1, head.ownWords}, std::size_t{head.units} - 1 - head.ownWords);
        *at = word;
        entryOf(key) = ref.word;
    }
    /// The label's entry where it stands.
    std::uint64_t& entryOf(Mpls::RouteKey key) const {
        return tables_->entryOf(table_, key.topLabel().value());
    }

    Mpls::LfibWriter& writer() { return tables_->publisher.lfib(table_); }
    LocalTables& tables() const { return *tables_; }
    std::size_t usedBytes() const { return tables_->publisher.tables().usedBytes(); }

  private:
    std::shared_ptr<LocalTables> tables_;
    Mpls::TableId table_;
};

/// An entity of a set of tables together with the means to change it, each change visible at once;
/// used like a handle of the entity.
template <typename Entity>
class LocalEntity {
  public:
    Entity* get() const { return entity_.get(); }
    template <typename Base>
    operator Ptr<Base>() const {
        return entity_;
    }

  protected:
    LocalEntity(std::shared_ptr<LocalTables> tables, Ptr<Entity> entity)
        : tables_(std::move(tables)), entity_(std::move(entity)) {}

    std::shared_ptr<LocalTables> tables_;
    Ptr<Entity> entity_;
};

class LocalHardware : public LocalEntity<Mpls::Hardware::Status> {
  public:
    explicit LocalHardware(std::shared_ptr<LocalTables> tables = std::make_shared<LocalTables>())
        : LocalEntity(tables, tables->published.hardware()) {}

    LocalHardware* operator->() { return this; }
    const Mpls::Hardware::Status& operator*() const { return *entity_; }

    void routeIs(const Mpls::Hardware::Route& route) {
        tables_->change([&] { tables_->publisher.hardware().routeIs(route); });
    }
    void routeDel(Mpls::RouteKey key) {
        tables_->change([&] { tables_->publisher.hardware().routeDel(key); });
    }
    void adjacencyIs(std::uint64_t key, const Ptr<const Mpls::Hardware::Adjacency>& adjacency) {
        tables_->change([&] { tables_->publisher.hardware().adjacencyIs(key, *adjacency); });
    }
    void adjacencyDel(std::uint64_t key) {
        tables_->change([&] { tables_->publisher.hardware().adjacencyDel(key); });
    }
};

class LocalMvpn : public LocalEntity<Routing::Multicast::MvpnIntfStatus> {
  public:
    using VrfId = Vrf::VrfIdMap::VrfId;

    explicit LocalMvpn(std::shared_ptr<LocalTables> tables = std::make_shared<LocalTables>())
        : LocalEntity(tables, tables->published.mvpn()) {}

    LocalMvpn* operator->() { return this; }
    const Routing::Multicast::MvpnIntfStatus& operator*() const { return *entity_; }

    void vrfIntfIdIs(VrfId vrf, Lumo::IntfId intf) {
        tables_->change([&] { tables_->publisher.mvpn().vrfIntfIdIs(vrf, intf); });
    }
    void entryIs(VrfId vrf, const Routing::Multicast::MvpnVrfIntfId& entry) {
        tables_->change([&] { tables_->publisher.mvpn().entryIs(vrf, entry); });
    }
    void vrfIntfIdDel(VrfId vrf) {
        tables_->change([&] { tables_->publisher.mvpn().vrfIntfIdDel(vrf); });
    }
    std::uint64_t corruptionsDetected() const { return entity_->corruptionsDetected(); }
    const std::string& lastCorruption() const { return entity_->lastCorruption(); }
};

} // namespace TestSupport
