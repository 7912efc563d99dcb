// Random sequences of every exported call on two volumes against a plain model of their trees.
// Whatever happens, each volume must show its model, through the library and, after unmounting, to
// the checker and to fsck.fat. A failing sequence is cut down to the steps that it needs.
//
// FATVOL_MODEL_OPERATIONS is the number of steps for each geometry, FATVOL_TEST_SEQUENCE the number
// of the first sequence.
#include <gtest/gtest-spi.h>

#include <chrono>

#include "api/library_state.h"
#include "model_handles.h"
#include "platform/clock.h"
#include "support/environment.h"

namespace fatvol::test {
namespace {

constexpr uint64_t stepsPerSequence = 250;
constexpr size_t manyNodes = 250;

struct Model : ModelHandles {
    using ModelHandles::ModelHandles;

    struct Action {
        const char* name;
        void (Model::*run)();
        uint64_t weight;
    };
    static const std::vector<Action> actions;

    void Do(size_t action, uint64_t state) {
        rng = Rng(state);
        Say(actions[action].name);
        if (side->nodes.size() > manyNodes) {
            DeleteTree();
        }
        (this->*actions[action].run)();
        EXPECT_TRUE(IsLibrarySound());
    }
    void Finish() {
        Remount();
        Switch();
        Remount();
    }
};

const std::vector<Model::Action> Model::actions = {{"create file", &Model::CreateFile, 4},
                                                   {"create dir", &Model::CreateDir, 3},
                                                   {"fill", &Model::FillDirectory, 1},
                                                   {"delete", &Model::Delete, 2},
                                                   {"delete tree", &Model::DeleteTree, 1},
                                                   {"delete listed", &Model::DeleteWhileListing, 1},
                                                   {"rename", &Model::Rename, 3},
                                                   {"move", &Model::Move, 3},
                                                   {"transfer", &Model::Transfer, 4},
                                                   {"seek", &Model::Seek, 2},
                                                   {"attributes", &Model::SetAttributes, 1},
                                                   {"resize", &Model::Resize, 3},
                                                   {"use all room", &Model::UseAllRoom, 1},
                                                   {"open many", &Model::OpenMany, 2},
                                                   {"close many", &Model::CloseMany, 1},
                                                   {"start finds", &Model::StartFinds, 2},
                                                   {"next find", &Model::NextFind, 3},
                                                   {"flush", &Model::Flush, 1},
                                                   {"switch", &Model::Switch, 1},
                                                   {"remount", &Model::Remount, 1}};

size_t PickAction(Rng& rng) {
    uint64_t total = 0;
    for (const Model::Action& action : Model::actions) {
        total += action.weight;
    }
    size_t picked = 0;
    for (uint64_t at = Below(rng, total); at >= Model::actions[picked].weight; ++picked) {
        at -= Model::actions[picked].weight;
    }
    return picked;
}

// What is done, and what all choices in it follow from: steps can be left out.
struct Step {
    size_t action;
    uint64_t state;
};
using Steps = std::vector<Step>;

// The first failure, or nothing.
std::string RunSteps(size_t geometry, uint64_t sequence, const Steps& steps, std::string* said) {
    testing::TestPartResultArray failures;
    const testing::ScopedFakeTestPartResultReporter reporter(&failures);
    ResetShortNameTailsForTests();
    Fat_LibInitialize();
    {
        Model model(geometry, sequence, said);
        for (size_t i = 0; i < steps.size() && failures.size() == 0; ++i) {
            model.Do(steps[i].action, steps[i].state);
        }
        if (failures.size() == 0) {
            model.Finish();
        }
    }
    EXPECT_TRUE(Fat_LibTerminate());
    if (failures.size() == 0) {
        return "";
    }
    const testing::TestPartResult& first = failures.GetTestPartResult(0);
    return "line " + std::to_string(first.line_number()) + ": " + first.message();
}

// Leaves out what the failure does not need: halves, quarters, ... single steps.
Steps Shrink(size_t geometry, uint64_t sequence, Steps steps) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (size_t part = steps.size() / 2; part > 0; part /= 2) {
        for (size_t at = 0; at < steps.size();) {
            Steps fewer = steps;
            const auto begin = fewer.begin() + static_cast<long>(at);
            fewer.erase(begin, begin + static_cast<long>(std::min(part, steps.size() - at)));
            if (std::chrono::steady_clock::now() > deadline) {
                return steps;
            }
            if (RunSteps(geometry, sequence, fewer, nullptr).empty()) {
                at += part;
            } else {
                steps = fewer;
            }
        }
    }
    return steps;
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
        Steps steps;
        for (; left > 0 && steps.size() < stepsPerSequence; --left) {
            const size_t action = PickAction(rng);
            steps.push_back({action, rng()});
        }
        if (RunSteps(GetParam(), sequence, steps, nullptr).empty()) {
            continue;
        }
        steps = Shrink(GetParam(), sequence, steps);
        std::string said;
        const std::string failure = RunSteps(GetParam(), sequence, steps, &said);
        ADD_FAILURE() << "FATVOL_TEST_SEQUENCE=" << sequence << "\n"
                      << failure << "\nafter these steps:\n"
                      << said;
    }
    FixClockForTests(std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Geometries, ChangeModel,
                         testing::Range(size_t{0}, std::size(modelLayouts)));

}  // namespace
}  // namespace fatvol::test
