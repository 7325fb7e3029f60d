#pragma once

#include <optional>
#include <string>

#include "Answers/LspEcho.h"
#include "Answers/RateLimit.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Notes about what answers a frame, or why nothing does, for whoever traces or explains it. They
/// have the names of the counts. Nothing happens while Ovix::RoadNotes are off.
class AnswerNotes {
  public:
    /// `by` are those who answer, where this router only says what they would do.
    explicit AnswerNotes(std::string_view by = {}) noexcept : by_(by) {}

    void sent(AnswerReason reason) const;
    /// An MPLS echo reply.
    void sent(const EchoFinding& finding) const;
    void suppressed(AnswerReason reason) const;
    /// An ICMP error is not due, or has no way to the source.
    void notSent(AnswerReason reason, std::string_view why) const;
    void silent(EchoSilence why) const;
    void passedOn() const;
    /// What cannot be read of a frame that is known in part; nothing is said of a whole one.
    void unread(const Frame& frame) const;

  private:
    void add(std::string_view what, const std::optional<EchoFinding>& finding = {}) const;

    std::string_view by_;
};

} // namespace OvixAgent
