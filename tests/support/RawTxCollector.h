#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Lumo/RawTxPam.h"

namespace TestSupport {

/// Keeps the frames that are sent raw while it exists.
class RawTxCollector : public Lumo::RawTxBackend {
  public:
    static constexpr std::uint32_t loopbackIndex = 41;

    struct Sent {
        std::string interfaceName;
        bool enabled;
        std::uint16_t protocol;
        std::uint32_t interfaceIndex;
        std::vector<std::uint8_t> bytes;
    };

    RawTxCollector() { currentIs(this); }
    ~RawTxCollector() override { currentIs(nullptr); }

    Ptr<Lumo::RawTxPam> rawTxPam(std::string_view interfaceName) override {
        ++portsMade;
        return Tessel::make<Port>(*this, std::string(interfaceName));
    }
    std::uint32_t interfaceIndex(std::string_view interfaceName) override {
        return interfaceName == "lo" ? loopbackIndex : 0;
    }

    std::vector<Sent> sent;
    bool refusing = false; ///< nothing gets through, though it is kept
    int portsMade = 0;
    int portsOpen = 0;

  private:
    class Port : public Lumo::RawTxPam {
      public:
        Port(RawTxCollector& to, std::string name) : to_(&to), name_(std::move(name)) {
            ++to_->portsOpen;
        }
        ~Port() override { --to_->portsOpen; }
        void enabledIs(bool enabled) override { enabled_ = enabled; }
        void ethProtocolIs(std::uint16_t protocol) override { protocol_ = protocol; }
        bool send(const Ptr<Lumo::Pkt>& packet, std::uint32_t interfaceIndex) override {
            const auto data = packet->data();
            to_->sent.push_back(
                {name_, enabled_, protocol_, interfaceIndex, {data.begin(), data.end()}});
            return !to_->refusing;
        }

      private:
        RawTxCollector* to_;
        std::string name_;
        bool enabled_ = false;
        std::uint16_t protocol_ = 0;
    };
};

} // namespace TestSupport
