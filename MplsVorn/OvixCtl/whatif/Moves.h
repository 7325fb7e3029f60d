#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "Tables/TableReader.h"
#include "Tessel/Words.h"
#include "whatif/Ways.h"
#include "whatif/Wires.h"

namespace OvixCtl {

/// What a change may move.
enum class Moved : std::uint8_t {
    labels,
    prefixes,
    pseudowires, ///< the frames of their circuits, to the other ends
    circuits,    ///< of pseudowires: the frames from the other ends
};

/// Labels, prefixes or pseudowires that change their ways alike.
struct Move {
    Way before;
    Way after;
    Moved of = Moved::labels;
    std::uint64_t count = 0;
    std::vector<std::string> examples; ///< the first ones: labels, ranges of them, prefixes, names
};

/// What a change moves.
class Moves {
  public:
    void addLabel(std::uint32_t label, const Way& before, const Way& after);
    void addPrefix(const L3::Route& route, const Way& before, const Way& after);
    void addPseudowire(const std::string& name, Moved of, const Way& before, const Way& after);

    struct Counts {
        std::uint64_t changed = 0; ///< in any way
        std::uint64_t lost = 0;    ///< of these: lead nowhere afterwards
        std::uint64_t gained = 0;  ///< of these: led nowhere before
    };
    const Counts& counts(Moved of) const noexcept { return counts_[static_cast<std::size_t>(of)]; }
    /// Whether any via is what a change is about, whatever moves.
    bool isAbout() const noexcept { return isAbout_; }
    void isAboutOne() noexcept { isAbout_ = true; }
    /// In the order in which they were found first.
    const std::vector<Move>& all();

  private:
    Move* moveOf(const Way& before, const Way& after, Moved of);

    struct Range {
        std::uint32_t first;
        std::uint32_t last;
    };

    std::vector<Move> moves_;
    std::unordered_map<std::uint64_t, std::size_t> byHash_;
    std::vector<std::vector<Range>> ranges_; ///< of labels, by move
    std::array<Counts, 4> counts_;           ///< by what is moved
    bool isAbout_ = false;
};

/// The moves of all labels and prefixes when what is assumed becomes so, and of `further` routes,
/// which are not in the tables.
Moves movesUnder(const Ptr<Tessel::TableReader>& reader, const Assumptions& assumed,
                 const std::vector<L3::Route>& further,
                 const std::vector<Wires::Configured>& wires);
/// Of these labels, when other tables take the place of these.
Moves movesBetween(const Ptr<Tessel::TableReader>& before, const Ptr<Tessel::TableReader>& after,
                   const std::vector<std::uint32_t>& labels,
                   const std::vector<Wires::Configured>& wires);

} // namespace OvixCtl

template <>
inline constexpr auto Tessel::words<OvixCtl::Moved> = std::to_array<Tessel::Word<OvixCtl::Moved>>({
    {"labels", OvixCtl::Moved::labels},
    {"prefixes", OvixCtl::Moved::prefixes},
    {"pseudowires", OvixCtl::Moved::pseudowires},
    {"circuits", OvixCtl::Moved::circuits},
});
