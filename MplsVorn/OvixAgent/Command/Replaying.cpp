#include "Command/Replaying.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Bundle/Bundle.h"
#include "Command/Explaining.h"
#include "Command/Run.h"
#include "Summary/JsonText.h"

namespace OvixAgent {

namespace {

void printReplay(const Bundle& bundle, const std::vector<std::string>& different, bool json) {
    if (json) {
        const nlohmann::ordered_json all{{"frames", bundle.frames.size()},
                                         {"different", different.size()},
                                         {"differences", different}};
        fmt::print("{}\n", dumped(all));
        return;
    }
    for (const std::string& each : different) {
        fmt::print("{}\n", each);
    }
    fmt::print("{} frames, {} different\n", bundle.frames.size(), different.size());
}

Tessel::Result<int> replay(const ReplayOptions& options) {
    Tessel::Result<Bundle> bundle = readBundle(options.bundle);
    if (!bundle) {
        return bundle.refused();
    }
    bundle.value().situation.plugin = options.plugin;
    serveToggles(bundle.value().situation.config, bundle.value().situation.file);
    const auto different = differences(bundle.value());
    if (!different) {
        return different.refused();
    }
    printReplay(bundle.value(), different.value(), options.json);
    return different.value().empty() ? ReplayExit::same : ReplayExit::different;
}

} // namespace

int runReplay(const ReplayOptions& options) {
    return exitCodeOf([&] { return replay(options); });
}

} // namespace OvixAgent
