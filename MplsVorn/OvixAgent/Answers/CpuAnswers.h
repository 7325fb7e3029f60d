#pragma once

#include <vector>

#include "Answers/Answer.h"
#include "Answers/LspEchoValidation.h"
#include "Answers/OwnAddresses.h"
#include "Answers/RateLimit.h"
#include "Answers/TooBigListener.h"
#include "Forwarding/ForwardingTables.h"
#include "Forwarding/TransmitPort.h"
#include "Mpls/PublishedTables.h"

namespace OvixAgent {

/// What the CPU answers to frames that were punted or too big: ICMP errors for a spent TTL and for
/// what does not fit, and MPLS echo replies; so many of each in a second. Everything punted goes on
/// to the CPU port, too.
class CpuAnswers final : public TransmitPort, public TooBigListener {
  public:
    /// A frame that answers, as if it had come in at the port where the frame came in that it
    /// answers.
    struct Frame {
        PortIndex port = 0;
        std::vector<std::uint8_t> bytes;
    };

    /// All must outlive it.
    CpuAnswers(TransmitPort& cpu, const AgentConfig& config, ForwardingTables& forwarding,
               const Mpls::PublishedTables& tables);

    /// Takes over the addresses of the ports, which must be the same.
    void configure(const AgentConfig& config);

    void transmit(const OvixAgent::Frame& frame) override;
    void tooBig(const OvixAgent::Frame& received, std::span<const std::uint8_t> leaving,
                std::uint32_t mtu) override;

    /// The answers since the last call, to be forwarded between frames.
    std::vector<Frame> take();

  private:
    void answer(const OvixAgent::Frame& frame, const LabelledPacket& packet);
    void queue(AnswerReason reason, const OvixAgent::Frame& frame, const LabelledPacket& packet,
               std::vector<std::uint8_t> bytes);
    bool isOwn(const OvixAgent::Frame& frame, const LabelledPacket& packet) const;
    bool mayBeOfVpn(const LabelledPacket& packet) const;
    EchoLabel labelUse(Lumo::MplsLabel label) const;

    TransmitPort* cpu_;
    ForwardingTables* forwarding_;
    const Mpls::PublishedTables* tables_;
    std::vector<OwnAddresses> own_; ///< by port
    EchoTables echoTables_;
    RateLimit rate_;
    std::vector<Frame> answers_;
};

} // namespace OvixAgent
