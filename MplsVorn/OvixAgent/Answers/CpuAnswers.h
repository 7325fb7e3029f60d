#pragma once

#include <array>
#include <vector>

#include "Answers/Answer.h"
#include "Answers/AnswerNotes.h"
#include "Answers/EchoLookup.h"
#include "Answers/LspEcho.h"
#include "Answers/RateLimit.h"
#include "Published/PublishedTables.h"
#include "State/DropListener.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Answers punted frames, frames that exceed the egress MTU and those that IP routing does not
/// deliver: ICMP time exceeded, too big and unreachable errors, and MPLS echo replies, each up to
/// its limits. An echo reply that a router alert label has brought here goes on. Punted frames also
/// go to the CPU port.
class CpuAnswers final : public TransmitPort, public DropListener {
  public:
    /// A trial has the same answers without limits, but where they are zero, counts nothing, and
    /// answers frames only while Ovix::RoadNotes are on.
    enum class Purpose : std::uint8_t {
        answer,
        trial,
        trialOfCaptures, ///< nobody takes the answers
    };

    /// An answer as a frame, to be processed as if received at the port of the frame that it
    /// answers, and with its tags.
    struct Frame {
        PortIndex port = 0;
        std::vector<std::uint8_t> bytes;
        bool isOwn = true; ///< made here
        bool alertsRouters = false;
    };

    /// All must outlive it.
    CpuAnswers(TransmitPort& cpu, const AgentConfig& config, ForwardingTables& forwarding,
               const Mpls::PublishedTables& tables, Purpose purpose = Purpose::answer);

    /// Sets the limits and the addresses of the ports; the ports themselves must be the same.
    void configure(const AgentConfig& config);

    void transmit(const OvixAgent::Frame& frame) override;
    void tooBig(const OvixAgent::Frame& received, std::span<const std::uint8_t> leaving,
                std::uint32_t mtu) override;
    void undelivered(const OvixAgent::Frame& received, std::string_view reason) override;

    /// The answers since the last call, to be forwarded between frames.
    std::vector<Frame> take();

    /// Frames that take() has given out: the forwarder counts them as received.
    std::uint64_t taken() const noexcept { return taken_; }

    /// See AnswerCounts::named(); and MPLS echo packets that are not answered, by their reason,
    /// what had no room in replies, and replies passed on.
    std::vector<std::pair<std::string, std::uint64_t>> counts() const;

  private:
    void answer(const OvixAgent::Frame& frame, const LabelledPacket& packet);
    void answerEcho(const OvixAgent::Frame& frame, const LabelledPacket& packet);
    /// `make` is given the addresses of the port.
    template <typename Make>
    void reportError(AnswerReason reason, const OvixAgent::Frame& frame,
                     const LabelledPacket& packet, const Make& make);
    bool isIdle() const noexcept;
    bool mayAnswerAny(AnswerReason reason);
    bool mayAnswer(AnswerReason reason, const OvixAgent::Frame& frame,
                   const LabelledPacket& packet);
    bool queue(AnswerReason reason, const OvixAgent::Frame& frame, const LabelledPacket& packet,
               std::vector<std::uint8_t> bytes, bool alertsRouters = false);
    void countSilence(EchoSilence why);
    void push(const OvixAgent::Frame& frame, const LabelledPacket& packet, const Answer& answer,
              bool isOwn, bool alertsRouters);
    void passOn(const OvixAgent::Frame& frame, const LabelledPacket& packet);
    // AnsweredPackets.cpp
    std::size_t mtuToSource(const OvixAgent::Frame& frame, const LabelledPacket& packet) const;
    bool isOfTree(const LabelledPacket& packet) const;
    bool mayReportError(const OvixAgent::Frame& frame, const LabelledPacket& packet) const;
    bool isLabelExpired(const LabelledPacket& packet) const;
    bool leadsToSource(const OvixAgent::Frame& frame, const LabelledPacket& packet) const;
    bool isOwn(const OvixAgent::Frame& frame, const LabelledPacket& packet) const;
    bool mayBeOfVpn(const LabelledPacket& packet) const;

    TransmitPort* cpu_;
    Purpose purpose_;
    AnswerNotes notes_;
    ForwardingTables* forwarding_;
    std::vector<OwnAddresses> own_; ///< by port
    EchoLookup lookup_;
    RateLimit rate_;
    AnswerCounts counts_;
    std::array<std::uint64_t, echoSilenceNames.size()> silences_{}; ///< by EchoSilence
    std::uint64_t leftOut_ = 0;                                     ///< TLVs of echo replies
    std::uint64_t passedOn_ = 0;                                    ///< echo replies of others
    std::vector<Frame> answers_;
    std::uint64_t taken_ = 0;
};

} // namespace OvixAgent
