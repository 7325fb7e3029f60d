#pragma once

#include <string>
#include <vector>

#include "FrameBytes.h"
#include "MadeUpVias.h"
#include "Ovix/plugin/Ports.h"

namespace TestSupport {

using Frames = std::vector<Bytes>;

/// A port that keeps what it is given, or does not take it.
class RecordingPort : public Ovix::Port {
  public:
    explicit RecordingPort(Lumo::IntfId intf, std::string name = "")
        : Port(intf), name_(std::move(name)) {}

    std::string_view shortName() const noexcept override { return name_; }
    bool send(const Ptr<Lumo::Pkt>& packet) override {
        if (takes) {
            frames.emplace_back(packet->data().begin(), packet->data().end());
        }
        return takes;
    }

    bool takes = true;
    Frames frames;

  private:
    std::string name_;
};

/// A set of the vias given, each of which gets a replica.
class ReplicatedVias : public MadeUpViaSet {
  public:
    explicit ReplicatedVias(std::vector<Ovix::OvixMplsVia> viasOfSet)
        : MadeUpViaSet(std::vector<std::uint32_t>(viasOfSet.size(), 1),
                       Mpls::LfibViaSetType::multicast),
          vias(std::move(viasOfSet)) {
        viaTypeOfAll = Mpls::LfibViaType::ip;
    }
    Ovix::OvixMplsVia via(std::uint32_t index) const override { return vias[index]; }

    std::vector<Ovix::OvixMplsVia> vias;
};

/// The plugin fixture with a CPU port and with the trace's sources kept.
class MulticastFixture : public MadeUpViasFixture {
  protected:
    MulticastFixture() {
        Ovix::TraceOutput::instance().textSinkIs(
            [this](std::string_view handle, unsigned, std::string_view line) {
                trace.emplace_back(line);
                handles.emplace_back(handle);
            });
    }
    Ptr<RecordingPort> portIs(Lumo::IntfId intf, const std::string& name = "") const {
        auto port = Tessel::make<RecordingPort>(intf, name);
        manager->ports()->portIs(port);
        return port;
    }
    Ptr<RecordingPort> cpuPort() const { return portIs(Lumo::CpuIntfId::cpuIdToIntfId(0), "cpu"); }
    /// The tail of an LSP whose lookup is on the interface.
    static Mpls::LfibMulticastIpLookupVia tailOn(Lumo::IntfId intf) {
        Mpls::LfibMulticastIpLookupVia via;
        via.vrfId = 7;
        via.intfIdHigh = static_cast<std::uint32_t>(intf.value() >> 32U);
        via.intfIdLow = static_cast<std::uint32_t>(intf.value());
        return via;
    }

    std::vector<std::string> handles; ///< of the trace's lines
};

} // namespace TestSupport
