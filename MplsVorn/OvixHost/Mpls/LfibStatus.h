#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Mpls/LfibRecords.h"
#include "Mpls/OvixMplsVia.h"
#include "Mpls/TableDirectory.h"
#include "Tables/Corruptions.h"
#include "Tables/TableReader.h"

namespace Mpls {

/// The reading side of one LFIB. Every read copies the record out, touching only what is in use,
/// and checks every index, offset and count before it follows it: damage throws
/// Tessel::CorruptionDetected, a list count beyond a list's capacity Tessel::RangeError. An absent
/// key reads as the default record. Reads are of the generation that the tables' reader holds.
class LfibStatus : public LfibViaSource, public Tessel::CorruptionHook {
  public:
    static constexpr std::string_view entityTypeName = "Mpls::LfibStatus";
    enum Attr : Tessel::AttrId { routeAttr = 0 };

    /// Throws CorruptionDetected when the tables have no such LFIB.
    LfibStatus(Ptr<const Tessel::TableReader> tables, TableId table);

    std::string_view typeName() const noexcept override { return entityTypeName; }

    LfibRoute route(RouteKey key) const {
        if (key.depth() != 1) {
            return {};
        }
        const Tessel::TableRef entry = tables_->entry(table_, key.topLabel().value());
        return entry ? LfibRoute{key, {entry.word}} : LfibRoute{};
    }
    LfibViaSet viaSet(LfibViaSetKey key) const;
    LfibIpLookupVia ipLookupVia(const LfibViaKey& key) const;
    LfibMulticastIpLookupVia multicastIpLookupVia(const LfibViaKey& key) const;
    /// Damage is reported to the corruption hook and reads as an invalid via.
    Ovix::OvixMplsVia ipVia(const LfibWeightedVia& member) const override;
    /// The same, but damage throws as in the other reads.
    Ovix::OvixMplsVia readIpVia(const LfibWeightedVia& member) const;

    std::uint64_t routes() const noexcept { return tables_->entries(table_); }
    /// Visits the routes by label.
    template <typename Visitor>
    void forEachRoute(Visitor&& visitor) const {
        tables_->forEach(table_, [&](std::uint32_t label, Tessel::TableRef entry) {
            visitor(LfibRoute{RouteKey::fromLabel(Lumo::MplsLabel(label)), {entry.word}});
        });
    }

  private:
    Ptr<const Tessel::TableReader> tables_;
    std::size_t table_;
};

} // namespace Mpls
