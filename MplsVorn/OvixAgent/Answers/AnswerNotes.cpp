#include "Answers/AnswerNotes.h"

#include <fmt/format.h>

#include "Ovix/trace/RoadNotes.h"

namespace OvixAgent {

namespace {

using Ovix::field;
using Ovix::RoadNotes;

std::string fecText(const std::optional<EchoFec>& fec) {
    if (!fec) {
        return {};
    }
    switch (fec->kind) {
    case EchoFec::Kind::prefix:
        return fmt::format("{}/{}", fec->prefix.text(), fec->length);
    case EchoFec::Kind::adjacency:
        return fec->remote.family() == Lumo::IpFamily::none
                   ? "adjacency"
                   : fmt::format("adjacency {} > {}", fec->local.text(), fec->remote.text());
    case EchoFec::Kind::nil:
        break;
    }
    return "nil";
}

} // namespace

void AnswerNotes::sent(AnswerReason reason) const {
    if (RoadNotes::isOn()) {
        add(AnswerCounts::nameOfSent(reason));
    }
}

void AnswerNotes::sent(const EchoFinding& finding) const {
    if (RoadNotes::isOn()) {
        add(AnswerCounts::nameOfSent(AnswerReason::lspEcho), finding);
    }
}

void AnswerNotes::suppressed(AnswerReason reason) const {
    if (RoadNotes::isOn()) {
        add(AnswerCounts::nameOfSuppressed(reason));
    }
}

void AnswerNotes::notSent(AnswerReason reason, std::string_view why) const {
    if (RoadNotes::isOn()) {
        add(fmt::format("{}: not sent, {}", AnswerCounts::nameOf(reason), why));
    }
}

void AnswerNotes::silent(EchoSilence why) const {
    if (RoadNotes::isOn()) {
        add(nameOf(why));
    }
}

void AnswerNotes::passedOn() const {
    if (RoadNotes::isOn()) {
        add(echoPassedOnName);
    }
}

void AnswerNotes::unread(const Frame& frame) const {
    if (RoadNotes::isOn() && frame.bytes.size() < frame.originalLength) {
        add(fmt::format("not known, of {} bytes only {} were kept", frame.originalLength,
                        frame.bytes.size()));
    }
}

void AnswerNotes::add(std::string_view what, const std::optional<EchoFinding>& finding) const {
    Ovix::RoadNote note{"answer", {}};
    note.with("answer", what);
    if (finding) {
        note.with("code", static_cast<unsigned>(finding->code))
            .with("meaning", Tessel::wordOf(finding->code))
            .with("depth", static_cast<unsigned>(finding->depth))
            .with("fec", fecText(finding->fec));
    }
    RoadNotes::report(std::move(note.with("by", by_)));
}

} // namespace OvixAgent
