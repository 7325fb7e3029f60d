#include "Forwarding/PluginHost.h"

#include <filesystem>

#include "Lumo/NetInt.h"
#include "Plugin/Library.h"

namespace OvixAgent {

namespace {

constexpr const char* pluginFile = "libMplsOvixPlugin.so";

std::string pluginBesideAgent() {
    const std::filesystem::path self = std::filesystem::canonical("/proc/self/exe");
    return (self.parent_path().parent_path() / "lib" / pluginFile).string();
}

} // namespace

void startPlugin(const std::string& file, const Ptr<Ovix::PluginContext>& context) {
    const std::string path = file.empty() ? pluginBesideAgent() : file;
    auto& loader = Plugin::Loader<Ovix::PluginContext>::defaultLoader();
    Plugin::Library::load(path);
    if (loader.registrations().empty()) {
        throw Plugin::LoadError(path + " registers no plugin");
    }
    loader.runInitCallers(context.get());
    activatePlugins(context);
}

void activatePlugins(const Ptr<Ovix::PluginContext>& context) {
    for (Ovix::OvixPlugin* plugin : context->plugins()) {
        plugin->createLocalEntities();
        plugin->mountsComplete(context->entityManager());
        plugin->setupPluginManager();
        plugin->activeInit();
    }
}

namespace {

Frame asFrame(const FrameInHand& inHand, std::span<const std::uint8_t> bytes) {
    return {inHand.frame->port, inHand.frame->time, bytes,
            static_cast<std::uint32_t>(bytes.size())};
}

/// A frame's Ethernet header and its one tag, if any, which no MTU counts.
std::size_t linkSize(std::span<const std::uint8_t> frame) noexcept {
    constexpr std::size_t ethSize = 14;
    constexpr std::size_t tagSize = 4;
    const bool isTagged =
        frame.size() >= ethSize + tagSize &&
        Lumo::NetU16::load(frame.data() + ethSize - 2).value() == Lumo::EtherType::vlan;
    return isTagged ? ethSize + tagSize : ethSize;
}

/// One of the agent's ports.
class NetworkPort : public Ovix::Port {
  public:
    NetworkPort(OvixAgent::Port& port, const FrameInHand& inHand) noexcept
        : Ovix::Port(port.intfId), port_(&port), inHand_(&inHand) {}

    std::string_view shortName() const noexcept override { return port_->name; }
    bool send(const Ptr<Lumo::Pkt>& packet) override {
        const std::span<const std::uint8_t> bytes = packet->data();
        if (!port_->isUp || bytes.size() > linkSize(bytes) + port_->mtu) {
            return false;
        }
        port_->sent.add(bytes.size());
        port_->out->transmit(asFrame(*inHand_, bytes));
        return true;
    }

  private:
    OvixAgent::Port* port_;
    const FrameInHand* inHand_;
};

/// The device's own CPU.
class CpuPort : public Ovix::Port {
  public:
    CpuPort(TransmitPort& cpu, FrameInHand& inHand) noexcept
        : Ovix::Port(Lumo::CpuIntfId::cpuIdToIntfId(0)), cpu_(&cpu), inHand_(&inHand) {}

    std::string_view shortName() const noexcept override { return "cpu"; }
    bool send(const Ptr<Lumo::Pkt>& packet) override {
        cpu_->transmit(asFrame(*inHand_, packet->data()));
        ++inHand_->toCpu;
        return true;
    }

  private:
    TransmitPort* cpu_;
    FrameInHand* inHand_;
};

} // namespace

void offerPorts(Ovix::Ports& ports, PortTable& table, TransmitPort& cpu, FrameInHand& inHand) {
    for (Port& port : table.ports()) {
        ports.portIs(Tessel::make<NetworkPort>(port, inHand));
    }
    ports.portIs(Tessel::make<CpuPort>(cpu, inHand));
}

} // namespace OvixAgent
