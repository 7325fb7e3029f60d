#include "Forwarding/PluginHost.h"

#include <cassert>

#include "Plugin/Loader.h"
#include "State/LinkHeader.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

void startPlugin(const std::string& file, const Ptr<Ovix::PluginContext>& context) {
    const std::string path =
        file.empty() ? Plugin::Library::installed("libMplsOvixPlugin.so") : file;
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

Frame asFrame(const CurrentFrame& current, std::span<const std::uint8_t> bytes) {
    assert(current.frame != nullptr);
    return {current.frame->port, current.frame->time, bytes,
            static_cast<std::uint32_t>(bytes.size())};
}

/// One of the agent's ports.
class NetworkPort : public Ovix::Port {
  public:
    NetworkPort(OvixAgent::Port& port, const CurrentFrame& current) noexcept
        : Ovix::Port(port.intfId), port_(&port), current_(&current) {}

    std::string_view shortName() const noexcept override { return port_->name; }
    bool send(const Ptr<Lumo::Pkt>& packet) override {
        const std::span<const std::uint8_t> bytes = packet->data();
        if (!port_->isUp || bytes.size() > Wire::linkLength(bytes) + port_->mtu) {
            return false;
        }
        port_->sent.add(bytes.size());
        if (port_->tagging.kind == Tagging::Kind::subInterface) {
            const Ptr<Lumo::Pkt> tagged = Lumo::globalPktManager()->newPkt(bytes);
            if (!insertTags(*tagged, tagsToSend({}, port_->tagging, 0))) {
                return false;
            }
            port_->out->transmit(asFrame(*current_, tagged->data()));
            return true;
        }
        port_->out->transmit(asFrame(*current_, bytes));
        return true;
    }

  private:
    OvixAgent::Port* port_;
    const CurrentFrame* current_;
};

/// The device's own CPU.
class CpuPort : public Ovix::Port {
  public:
    CpuPort(TransmitPort& cpu, CurrentFrame& current) noexcept
        : Ovix::Port(Lumo::CpuIntfId::cpuIdToIntfId(0)), cpu_(&cpu), current_(&current) {}

    std::string_view shortName() const noexcept override { return "cpu"; }
    bool send(const Ptr<Lumo::Pkt>& packet) override {
        cpu_->transmit(asFrame(*current_, packet->data()));
        ++current_->toCpu;
        return true;
    }

  private:
    TransmitPort* cpu_;
    CurrentFrame* current_;
};

} // namespace

void registerPorts(Ovix::Ports& ports, PortTable& table, TransmitPort& cpu, CurrentFrame& current) {
    for (Port& port : table.ports()) {
        ports.portIs(Tessel::make<NetworkPort>(port, current));
    }
    ports.portIs(Tessel::make<CpuPort>(cpu, current));
}

std::optional<Fate> InputSteps::run(const Ptr<Ovix::PacketContext>& packet, CurrentFrame& current) {
    for (const Ptr<Ovix::InputPipelineStep>& step : steps_->steps()) {
        const Ovix::InputVerdict verdict = step->process(packet);
        switch (verdict.kind) {
        case Ovix::InputVerdict::Kind::unchanged:
            break;
        case Ovix::InputVerdict::Kind::modified:
            replace(current, *packet);
            break;
        case Ovix::InputVerdict::Kind::sent:
            return forwarded;
        case Ovix::InputVerdict::Kind::refused:
            return drop(verdict.reason);
        }
    }
    return std::nullopt;
}

// The bytes are kept, since rewrites change the packet while copies are made of the frame and the
// CPU gets it unchanged.
void InputSteps::replace(CurrentFrame& current, const Ovix::PacketContext& modified) {
    assert(current.frame != nullptr);
    const std::span<const std::uint8_t> bytes = modified.pkt()->data();
    const Frame& old = *current.frame;
    const auto snapped = static_cast<std::uint32_t>(old.originalLength - old.bytes.size());
    modifiedBytes_.assign(bytes.begin(), bytes.end());
    modified_ = {old.port, old.time, modifiedBytes_,
                 static_cast<std::uint32_t>(modifiedBytes_.size()) + snapped};
    current.frame = &modified_;
}

} // namespace OvixAgent
