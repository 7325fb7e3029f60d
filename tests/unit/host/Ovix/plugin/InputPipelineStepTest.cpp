#include "Ovix/plugin/InputPipelineStep.h"

#include <gtest/gtest.h>

namespace InputPipelineStepTest {

namespace {

using namespace Ovix;

class IdleStep : public InputPipelineStep {
  public:
    using InputPipelineStep::InputPipelineStep;
    InputVerdict process(const Ptr<PacketContext>&) override { return {}; }
};

using Steps = std::vector<Ptr<InputPipelineStep>>;

TEST(AllGenericPipelineSteps, AreKeptInTheOrderOfAddition) {
    AllGenericPipelineSteps list;
    EXPECT_TRUE(list.steps().empty());
    const Ptr<InputPipelineStep> first = Tessel::make<IdleStep>("Zulu");
    const Ptr<InputPipelineStep> second = Tessel::make<IdleStep>("Alpha");
    list.addStep(first);
    list.addStep(second);
    list.addStep(nullptr);
    EXPECT_EQ(list.steps(), (Steps{first, second}));
}

TEST(AllGenericPipelineSteps, AStepIsTakenOnce) {
    AllGenericPipelineSteps list;
    const Ptr<InputPipelineStep> first = Tessel::make<IdleStep>("Mldp");
    const Ptr<InputPipelineStep> other = Tessel::make<IdleStep>("Other");
    const Ptr<InputPipelineStep> renewed = Tessel::make<IdleStep>("Mldp");
    for (const auto& step : {first, other, first, renewed}) {
        list.addStep(step);
    }
    EXPECT_EQ(list.steps(), (Steps{renewed, other}));
}

} // namespace

} // namespace InputPipelineStepTest
