#pragma once

#include <cstdint>
#include <string_view>

#include "Ovix/packet/PacketContext.h"
#include "Tessel/NamedList.h"

namespace Ovix {

/// What an input pipeline step has made of a frame.
struct InputVerdict {
    enum class Kind : std::uint8_t {
        unchanged, ///< not for the step
        modified,  ///< the packet context holds another packet, with which the frame goes on
        sent,      ///< the step has sent the frame itself
        refused,   ///< the frame goes no further
    };

    Kind kind = Kind::unchanged;
    const char* reason = ""; ///< why it was refused; a literal
};

/// Looks at every frame between its receipt and routing. Called on the packet thread.
class InputPipelineStep : public Tessel::Counted {
  public:
    /// `name` is a literal, for example "MplsMldp".
    explicit InputPipelineStep(std::string_view name) noexcept : name_(name) {}
    std::string_view name() const noexcept { return name_; }

    /// The frame is as received, however short, and not yet parsed.
    virtual InputVerdict process(const Ptr<PacketContext>& context) = 0;

    /// Whether every frame of that EtherType, 0 for one too short to have any, is unchanged and
    /// leaves no trace but in trace lines; then it need not be asked about them.
    virtual bool ignores(std::uint16_t) const noexcept { return false; }

  private:
    std::string_view name_;
};

/// The steps that every frame takes, in the order in which they were added. A step of the same name
/// is replaced, so that none is taken twice.
class AllGenericPipelineSteps : public Tessel::NamedList<InputPipelineStep> {
  public:
    void addStep(Ptr<InputPipelineStep> step) { add(std::move(step)); }
    const std::vector<Ptr<InputPipelineStep>>& steps() const noexcept { return items(); }
};

} // namespace Ovix
