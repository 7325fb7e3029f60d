#pragma once

#include <vector>

#include "Answers/Answer.h"
#include "Answers/EchoLookup.h"
#include "Answers/RateLimit.h"
#include "Published/PublishedTables.h"
#include "State/ForwardingTables.h"
#include "State/TooBigListener.h"
#include "State/TransmitPort.h"

namespace OvixAgent {

/// What the CPU answers to frames that were punted or too big: ICMP errors for a spent TTL and for
/// what does not fit, and MPLS echo replies; so many of each in a second. Everything punted goes on
/// to the CPU port, too.
class CpuAnswers final : public TransmitPort, public TooBigListener {
  public:
    /// A frame that answers, as if it had come in at the port where the frame came in that it
    /// answers, and with the tags of that.
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

    /// How many have been sent, and how many suppressed, by name; see AnswerCounts::named().
    std::vector<std::pair<std::string, std::uint64_t>> counts() const { return counts_.named(); }

  private:
    void answer(const OvixAgent::Frame& frame, const LabelledPacket& packet);
    void queue(AnswerReason reason, const OvixAgent::Frame& frame, const LabelledPacket& packet,
               std::vector<std::uint8_t> bytes);
    bool mayBeToldOf(const OvixAgent::Frame& frame, const LabelledPacket& packet) const;
    bool isOwn(const OvixAgent::Frame& frame, const LabelledPacket& packet) const;
    bool mayBeOfVpn(const LabelledPacket& packet) const;

    TransmitPort* cpu_;
    ForwardingTables* forwarding_;
    std::vector<OwnAddresses> own_; ///< by port
    EchoLookup lookup_;
    RateLimit rate_;
    AnswerCounts counts_;
    std::vector<Frame> answers_;
};

} // namespace OvixAgent
