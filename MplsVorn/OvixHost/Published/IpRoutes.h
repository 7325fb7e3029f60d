#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Mpls/Hardware/Adjacency.h"
#include "Tables/TableReader.h"
#include "Tables/TableWriter.h"

namespace L3 {

/// What an IP route is for: a prefix in a routing table, which is numbered as the kernel numbers
/// its own (254: the main one).
struct RouteKey {
    std::uint32_t table = mainTable;
    Lumo::IpGenAddr prefix;
    std::uint8_t length = 0;

    static constexpr std::uint32_t mainTable = 254;

    Lumo::IpGenPrefix range() const noexcept { return {prefix, length}; }

    friend bool operator==(const RouteKey&, const RouteKey&) noexcept = default;
    friend bool operator<(const RouteKey& a, const RouteKey& b) noexcept;
};

/// The route of a prefix: to vias, of which each may push labels; to the device itself; or nowhere:
/// silently, or so that the source gets an ICMP error.
struct Route {
    enum class Kind : std::uint8_t {
        forward = 1,
        local = 2,
        drop = 3,
        unreachable = 4,
        prohibit = 5
    };

    RouteKey key;
    Kind kind = Kind::drop;
    std::vector<Mpls::WeightedVia> vias; ///< of a forwarding route: 1 to 599
    VrfName vrf{};                       ///< whose table it is; empty: the default VRF

    friend bool operator==(const Route&, const Route&) noexcept = default;
};

/// The IP routes that a control plane publishes, each in a place of its own: the reading side. To
/// be made into whatever finds the longest prefix.
class Routes {
  public:
    static constexpr std::string_view mountPath = "l3/routes";
    static constexpr std::string_view typeName = "L3::Routes";

    explicit Routes(Ptr<const Tessel::TableReader> tables)
        : tables_(std::move(tables)), table_(tables_->table(mountPath, typeName)) {}

    /// None when nothing is there. Damage throws Tessel::CorruptionDetected.
    std::optional<Route> at(std::uint32_t place) const;

    std::size_t table() const noexcept { return table_; }
    std::size_t size() const noexcept { return tables_->entries(table_); }

  private:
    Ptr<const Tessel::TableReader> tables_;
    std::size_t table_;
    mutable std::vector<std::uint64_t> words_;
};

/// The writing side: makes the changes of a batch. Full tables throw std::length_error.
class RoutesWriter {
  public:
    RoutesWriter(Tessel::TableWriter& tables, std::size_t table);

    /// Vias whose number or weights are out of range throw std::invalid_argument.
    void routeIs(const Route& route);
    /// False when there is no such route.
    bool routeDel(const RouteKey& key);
    /// The keys that have a route.
    std::vector<RouteKey> keys() const;
    /// Undoes the changes since the last commit, as the tables' writer does.
    void discard();

  private:
    Tessel::TableWriter* tables_;
    std::size_t table_;
    std::map<RouteKey, std::uint32_t> places_;
    std::vector<std::uint32_t> freePlaces_;
    std::uint32_t nextPlace_ = 0;
};

} // namespace L3

template <>
inline constexpr auto
    Tessel::words<L3::Route::Kind> = std::to_array<Tessel::Word<L3::Route::Kind>>({
        {"forward", L3::Route::Kind::forward},
        {"local", L3::Route::Kind::local},
        {"drop", L3::Route::Kind::drop},
        {"unreachable", L3::Route::Kind::unreachable},
        {"prohibit", L3::Route::Kind::prohibit},
    });
