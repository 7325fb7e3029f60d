#include "lifecycle/MplsOvixPluginInst.h"

#include "FrameEvents.h"

namespace Ovix {

void OvixMplsPluginInst::init(PluginContext* context) {
    plugin_ = Tessel::make<MplsOvixPlugin>("Mpls");
    plugin_->pluginCtxIs(Ptr<PluginContext>(context));
    plugin_->savePluginRef(context->entityManager());
    mainTrace().trace(0, static_cast<const char*>(__PRETTY_FUNCTION__), " loaded Mpls plugin");
}

namespace {

OvixMplsPluginInst pluginInstance;

} // namespace

} // namespace Ovix
