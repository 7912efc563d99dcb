// Random sequences of every exported call on two volumes against a plain model of their trees.
// Whatever happens, each volume must show its model, through the library and, after unmounting, to
// the checker and to fsck.fat. A failing sequence is cut down to the steps that it needs.
//
// FATVOL_MODEL_OPERATIONS is the number of steps for each geometry, FATVOL_TEST_SEQUENCE the number
// of the first sequence.
#include <gtest/gtest-spi.h>

#include "model_changes.h"
#include "platform/clock.h"
#include "support/environment.h"

namespace fatvol::test {
namespace {

constexpr size_t stepsPerSequence = 250, manyNodes = 250;

constexpr void (Model::*actions[])() = {
    &Model::CreateFiles, &Model::CreateDir, &Model::OpenMany, &Model::CloseMany,
    &Model::StartFinds,  &Model::NextFinds, &Model::Flush,    &Model::SwitchOrRemount};
constexpr void (Model::*nodeActions[])(const NodeRef&) = {&Model::Delete, &Model::Rename,
                                                          &Model::Move};
constexpr void (Model::*fileActions[])(const Held&) = {&Model::Transfer, &Model::Seek,
                                                       &Model::SetAttributes, &Model::Resize};

// All choices in a step follow from its number: steps can be left out.
using Steps = std::vector<uint64_t>;

void Do(Model& model, uint64_t step) {
    model.rng = Rng(step);
    const uint64_t kind = Below(model.rng, 10);
    const NodeRef node = model.Pick(true);
    if (node && model.side->nodes.size() > manyNodes) {
        model.DeleteTree(node);
    } else if (kind < 6) {
        (model.*actions[Below(model.rng, std::size(actions))])();
    } else if (node && kind < 8) {
        (model.*nodeActions[Below(model.rng, std::size(nodeActions))])(node);
    } else if (node) {
        // A handle that is held already, on either volume, or a new one.
        if (model.files.empty() || (model.files.size() < fileHandles && model.Chance(2))) {
            model.Open(node);
        }
        const Held& file = model.files[Below(model.rng, model.files.size())];
        const size_t action = Below(model.rng, std::size(fileActions));
        model.Say("handle, action " + std::to_string(action), file.node->path);
        (model.*fileActions[action])(file);
    }
    EXPECT_TRUE(IsLibrarySound());
    for (const Side& side : model.sides) {
        EXPECT_TRUE(AreListingsInStep(*side.mounted->volume));
    }
}

// The first failure, and what was done until then; nothing without failure.
std::string RunSteps(size_t geometry, uint64_t sequence, const Steps& steps) {
    testing::TestPartResultArray failures;
    const testing::ScopedFakeTestPartResultReporter reporter(&failures);
    std::string said;
    Fat_LibInitialize();
    {
        Model model(geometry, sequence);
        for (size_t i = 0; i < steps.size() && failures.size() == 0; ++i) {
            Do(model, steps[i]);
        }
        for (int i = 0; i < 2 && failures.size() == 0; ++i) {
            model.Remount();
            model.Switch();
        }
        said = model.said;
    }
    EXPECT_TRUE(Fat_LibTerminate());
    if (failures.size() == 0) {
        return "";
    }
    const testing::TestPartResult& first = failures.GetTestPartResult(0);
    return "line " + std::to_string(first.line_number()) + ": " + first.message() +
           "\nafter this:\n" + said;
}

uint64_t NumberFromEnvironment(const char* name, uint64_t otherwise) {
    const char* text = std::getenv(name);
    return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

class ChangeModel : public testing::TestWithParam<size_t> {};

TEST_P(ChangeModel, ShowsWhatWasDone) {
    UseTimeZone("UTC");
    FixClockForTests(1710510330);  // 2024-03-15 13:45:30
    uint64_t left = NumberFromEnvironment("FATVOL_MODEL_OPERATIONS", 3000);
    for (uint64_t sequence = NumberFromEnvironment("FATVOL_TEST_SEQUENCE", 1);
         left > 0 && !HasFailure(); ++sequence) {
        Rng rng(sequence);
        Steps steps(std::min<size_t>(left, stepsPerSequence));
        std::generate(steps.begin(), steps.end(), rng);
        left -= steps.size();
        std::string failure = RunSteps(GetParam(), sequence, steps);
        // Leaves out what the failure does not need: halves, quarters, ... single steps.
        for (size_t part = failure.empty() ? 0 : steps.size() / 2; part > 0; part /= 2) {
            for (size_t at = 0; at < steps.size();) {
                const auto begin = steps.begin() + static_cast<long>(at);
                Steps fewer(steps.begin(), begin);
                fewer.insert(fewer.end(), std::min(begin + static_cast<long>(part), steps.end()),
                             steps.end());
                const std::string still = RunSteps(GetParam(), sequence, fewer);
                at += still.empty() ? part : 0;
                failure = still.empty() ? failure : still;
                steps = still.empty() ? steps : fewer;
            }
        }
        EXPECT_EQ(failure, "") << "FATVOL_TEST_SEQUENCE=" << sequence;
    }
    FixClockForTests(std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Geometries, ChangeModel,
                         testing::Range(size_t{0}, std::size(modelLayouts)));

}  // namespace
}  // namespace fatvol::test
