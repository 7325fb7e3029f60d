#pragma once

#include <cassert>
#include <cstdint>
#include <span>
#include <vector>

#include "Lumo/IntfId.h"
#include "Mpls/OvixMplsVia.h"
#include "Mpls/Types.h"
#include "Mpls/Via.h"
#include "Tables/TableReader.h"
#include "Tessel/Ptr.h"

namespace Mpls::Hardware {

/// What an adjacency consists of, unpacked.
struct AdjacencyVias {
    LfibViaType viaType = LfibViaType::ip;
    LfibViaSetType setType = LfibViaSetType::unicast;
    bool useBackups = false;
    std::vector<WeightedVia> vias;    ///< at most 599
    std::vector<WeightedVia> backups; ///< likewise

    friend bool operator==(const AdjacencyVias&, const AdjacencyVias&) noexcept = default;
};

/// Where the platform sends what a route matches: vias with weights, and backups to use instead
/// while the adjacency is marked so. Never changed once made. Everything is packed in words behind
/// the object, as tables carry it:
///
///     Head | Entry x vias | Entry x backups | PackedVia of each entry
class Adjacency final : public Tessel::Counted {
  public:
    /// At most 599 vias and as many backups, each list's weights adding up to less than 2^32;
    /// std::invalid_argument otherwise.
    static Ptr<const Adjacency> create(std::span<const WeightedRecord> vias,
                                       std::span<const WeightedRecord> backups, bool useBackups,
                                       LfibViaType viaType = LfibViaType::ip,
                                       LfibViaSetType setType = LfibViaSetType::unicast);
    static Ptr<const Adjacency> create(const AdjacencyVias& content);
    /// Copies the adjacency that `ref` names out of its tables; throws as they do.
    static Ptr<const Adjacency> read(const Tessel::TableReader& tables, Tessel::TableRef ref);

    /// The adjacency whose words stand in another record; empty when they are not one.
    static Ptr<const Adjacency> fromWords(std::span<const std::uint64_t> words);

    bool useBackups() const noexcept { return head().useBackups != 0; }
    LfibViaType viaType() const noexcept { return static_cast<LfibViaType>(head().viaType); }
    LfibViaSetType setType() const noexcept { return static_cast<LfibViaSetType>(head().setType); }

    /// What choosing a via needs of it.
    struct Entry {
        Lumo::IntfId intf;
        std::uint32_t weight;
        std::uint32_t packedOffset; ///< bytes from the head's start
    };

    std::span<const Entry> entries(bool backups) const noexcept {
        const auto* first = reinterpret_cast<const Entry*>(firstWord() + 1);
        return backups ? std::span(first + head().vias, head().backups)
                       : std::span(first, head().vias);
    }
    /// Invalid when its fields cannot be read. Good until the next call.
    const Ovix::OvixMplsVia& via(bool backups, std::uint32_t index) const noexcept {
        assert(index < entries(backups).size());
        const Entry* entry = &entries(backups)[index];
        return entry == unpackedEntry_ ? unpacked_ : unpack(entry);
    }

    /// Refused when a via cannot be read or is not legal.
    Tessel::Result<AdjacencyVias> content() const;

    std::span<const std::uint64_t> words() const noexcept { return {firstWord(), words_}; }
    bool isEq(const Adjacency& other) const noexcept;

  protected:
    void lastUserGone() noexcept override;

  private:
    struct Head {
        std::uint16_t vias;
        std::uint16_t backups;
        std::uint8_t useBackups;
        std::uint8_t viaType;
        std::uint8_t setType;
        std::uint8_t reserved;
    };
    static_assert(sizeof(Head) == sizeof(std::uint64_t));
    static_assert(sizeof(Entry) == 2 * sizeof(std::uint64_t));

    explicit Adjacency(std::uint32_t words) noexcept : words_(words) {}
    static Ptr<Adjacency> ofWords(std::size_t words);
    static void* operator new(std::size_t, void* at) noexcept { return at; }

    const Head& head() const noexcept { return *reinterpret_cast<const Head*>(firstWord()); }
    const std::uint64_t* firstWord() const noexcept {
        return reinterpret_cast<const std::uint64_t*>(this + 1);
    }
    std::uint64_t* firstWord() noexcept { return reinterpret_cast<std::uint64_t*>(this + 1); }
    bool holdsTogether() const noexcept;
    const Ovix::OvixMplsVia& unpack(const Entry* entry) const noexcept;

    std::uint32_t words_;
    // Most adjacencies have one via in use, which every frame reads.
    mutable const Entry* unpackedEntry_ = nullptr;
    mutable Ovix::OvixMplsVia unpacked_;
};

} // namespace Mpls::Hardware
