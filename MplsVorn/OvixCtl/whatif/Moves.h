#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "Tables/TableReader.h"
#include "whatif/Ways.h"

namespace OvixCtl {

/// Labels or prefixes that change their ways alike.
struct Move {
    Way before;
    Way after;
    bool isOfPrefixes = false;
    std::uint64_t count = 0;
    std::vector<std::string> examples; ///< labels, ranges of labels, prefixes: the first ones
};

/// What a change moves.
class Moves {
  public:
    void addLabel(std::uint32_t label, const Way& before, const Way& after);
    void addPrefix(const L3::Route& route, const Way& before, const Way& after);

    struct Counts {
        std::uint64_t changed = 0; ///< in any way
        std::uint64_t lost = 0;    ///< of these: lead nowhere afterwards
        std::uint64_t gained = 0;  ///< of these: led nowhere before
    };
    const Counts& labels() const noexcept { return labels_; }
    const Counts& prefixes() const noexcept { return prefixes_; }
    /// Whether any via is what a change is about, whatever moves.
    bool isAbout() const noexcept { return isAbout_; }
    void isAboutOne() noexcept { isAbout_ = true; }
    /// In the order in which they were found first.
    const std::vector<Move>& all();

  private:
    Move* moveOf(const Way& before, const Way& after, bool isOfPrefixes, Counts& counts);

    struct Range {
        std::uint32_t first;
        std::uint32_t last;
    };

    std::vector<Move> moves_;
    std::unordered_map<std::uint64_t, std::size_t> byHash_;
    std::vector<std::vector<Range>> ranges_; ///< of labels, by move
    Counts labels_;
    Counts prefixes_;
    bool isAbout_ = false;
};

/// The moves of all labels and prefixes when what is assumed becomes so, and of `further` routes,
/// which are not in the tables.
Moves movesUnder(const Ptr<Tessel::TableReader>& reader, const Assumptions& assumed,
                 const std::vector<L3::Route>& further);
/// Of these labels, when other tables take the place of these.
Moves movesBetween(const Ptr<Tessel::TableReader>& before, const Ptr<Tessel::TableReader>& after,
                   const std::vector<std::uint32_t>& labels);

} // namespace OvixCtl
