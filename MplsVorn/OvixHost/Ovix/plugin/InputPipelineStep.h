#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "Ovix/packet/PacketContext.h"
#include "Tessel/Ptr.h"

namespace Ovix {

/// What an input pipeline step has made of a frame.
struct InputVerdict {
    enum class Kind : std::uint8_t {
        unchanged, ///< not the step's business
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

  private:
    std::string_view name_;
};

/// The steps that every frame takes, in the order in which they were added.
class AllGenericPipelineSteps : public Tessel::Counted {
  public:
    /// A step of the same name is replaced, so that none is taken twice. Empty: ignored.
    void addStep(Ptr<InputPipelineStep> step) {
        if (!step) {
            return;
        }
        const auto same = std::find_if(steps_.begin(), steps_.end(), [&](const auto& held) {
            return held->name() == step->name();
        });
        if (same != steps_.end()) {
            *same = std::move(step);
        } else {
            steps_.push_back(std::move(step));
        }
    }
    const std::vector<Ptr<InputPipelineStep>>& steps() const noexcept { return steps_; }

  private:
    std::vector<Ptr<InputPipelineStep>> steps_;
};

} // namespace Ovix
