#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Mpls/Via.h"
#include "route/RouteWords.h"

namespace OvixCtl {

/// An attribute of a via beside its operation, next hop and interface: a word, and mostly a value.
struct ViaAttribute {
    std::string_view word;
    std::string value; ///< what help calls it: "N", or the words "a|b"; empty: none
    /// The value; unset when it is as usual.
    std::optional<std::string> (*text)(const Mpls::ViaOptions& options);
    /// Takes the value. Throws UsageError, with `noun` for what it is.
    void (*take)(Mpls::ViaOptions& options, std::string_view noun, const std::string& value);
};

/// All of them: an entry is printed and parsed by this table.
const std::vector<ViaAttribute>& viaAttributes();

/// A via as its words make it: a pop unless they say otherwise.
class ViaDraft {
  public:
    explicit ViaDraft(bool isBackup = false) noexcept : isBackup_(isBackup) {}

    /// Takes a word, and what belongs to it of those behind. Each may be given once. False for a
    /// word that no via has. Throws UsageError.
    bool take(const std::string& word, Words& behind);
    bool isBackup() const noexcept { return isBackup_; }
    /// Refused when no frame can be sent by it.
    Tessel::Result<Mpls::WeightedVia> made() const;

    /// All that take() knows.
    static std::vector<std::string_view> words();

  private:
    struct Word {
        std::string_view word;
        void (ViaDraft::*take)(Words& behind);
    };
    static const std::array<Word, 6> own;

    void takeSwap(Words& behind);
    void takePush(Words& behind);
    void takeLabels(Lumo::MplsLabelAction action, Words& behind);
    void takeAddress(Words& behind);
    void takeInterface(Words& behind) { options_.intf = behind.nextInterface(); }
    void takeWeight(Words& behind);
    void takeFec(Words& behind);
    Tessel::Result<Mpls::Via> via() const;

    Lumo::MplsLabelAction action_ = Lumo::MplsLabelAction::pop;
    std::vector<Lumo::MplsLabel> labels_;
    Mpls::ViaOptions options_;
    std::uint64_t fec_ = 0;
    std::uint32_t weight_ = 1;
    bool isBackup_;
    std::set<std::string_view> given_;
};

} // namespace OvixCtl
