#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include "FastPath/PacketWork.h"
#include "Ovix/plugin/InputPipelineStep.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// What is fixed about the frames of a port until its link or the configuration changes.
struct Intake {
    /// Of frames for the port alone the first eight bytes, masked, are `station`.
    std::uint64_t stationMask = 0;
    std::uint64_t station = 0;
    /// The EtherType of labelled frames, in network byte order, if they are taken and no tags are.
    std::uint32_t plainLabels = noEtherType;
    std::uint32_t fib = 0;     ///< number of its VRF
    bool takesPlainIp = false; ///< likewise IP packets
    bool takesLabels = false;
    bool takesIp = false;
    bool isCircuit = false;
    bool isLeftOut = false; ///< takes nothing
    bool hasVlans = false;  ///< sub-interfaces
    bool isVlan = false;    ///< a sub-interface, at which no frame comes in itself

    static constexpr std::uint32_t noEtherType = ~std::uint32_t{0};

    bool takesPlainLabels(const std::uint8_t* frame) const noexcept {
        std::uint16_t etherType = 0;
        std::memcpy(&etherType, frame + Wire::Ethernet::etherTypeAt, sizeof etherType);
        return etherType == plainLabels;
    }
    /// For the port alone, not for a group; the frame has a whole link header.
    bool isForStation(const std::uint8_t* frame) const noexcept {
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, frame, sizeof bytes);
        return (bytes & stationMask) == station;
    }
};

/// The ports as frames come in.
class Intakes {
  public:
    /// The tables must outlive it.
    Intakes(const ForwardingTables& tables, Ptr<Ovix::AllGenericPipelineSteps> inputSteps) noexcept
        : tables_(&tables), inputSteps_(std::move(inputSteps)) {}

    /// To be called when the configuration or an input step has changed.
    void restart();
    /// Takes over what has changed of the ports' links.
    void refresh() {
        if (seen_ != tables_->ports.changes()) {
            restart();
        }
    }

    /// Leaves the frames of a port, and of its sub-interfaces, to the forwarder; unset: of none.
    void leftOutIs(std::optional<PortIndex> port) {
        leftOut_ = port;
        restart();
    }

    const Intake& operator[](PortIndex port) const noexcept { return intakes_[port]; }
    /// By port, until the next restart().
    const Intake* all() const noexcept { return intakes_.data(); }

    /// Finds the port that a frame is for and where its packet starts. Returns its EtherType; unset
    /// when the frame is none that is for a port without further ado.
    std::optional<std::uint16_t> takeIn(PacketWork& work) const;

  private:
    Intake intakeOf(PortIndex index, bool ignoresLabels, bool ignoresIp) const;
    bool findSubInterface(PacketWork& work) const;

    const ForwardingTables* tables_;
    Ptr<Ovix::AllGenericPipelineSteps> inputSteps_;
    std::vector<Intake> intakes_; ///< by port
    std::uint64_t seen_ = 0;      ///< changes of the ports
    std::optional<PortIndex> leftOut_;
};

} // namespace OvixAgent
