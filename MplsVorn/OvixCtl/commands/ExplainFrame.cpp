#include "Command/Explaining.h"
#include "Command/Run.h"
#include "Explain/RemedyWords.h"
#include "commands/AgentSituation.h"

namespace OvixCtl {

Tessel::Result<int> explainFrameOfAgent(const Request& request) {
    Tessel::Result<OvixAgent::Situation> situation = situationOf(request);
    if (!situation) {
        return situation.refused();
    }
    situation.value().waitsForNeighbours = situation.value().isLive;
    situation.value().explainCommand =
        "ovixctl --tables " + OvixAgent::shellWord(request.tables) +
        (request.control.empty() ? "" : " --control " + OvixAgent::shellWord(request.control)) +
        " explain";
    OvixAgent::serveToggles(situation.value().config, situation.value().file);
    return OvixAgent::explainFrame(situation.value(), request.port, request.words.front(),
                                   {request.json, request.html});
}

} // namespace OvixCtl
