// Random sequences of every exported call on two volumes against a plain model of their trees.
// Whatever happens, each volume must show its model, through the library and, after unmounting, to
// the checker and to fsck.fat. A failing sequence is cut down to the steps that it needs.
//
// FATVOL_MODEL_OPERATIONS is the number of steps for each geometry, FATVOL_TEST_SEQUENCE the number
// of the first sequence.
#include <gtest/gtest-spi.h>

#include "model_changes.h"
#include "support/judges.h"

namespace fatvol::test {
namespace {

constexpr size_t stepsPerSequence = 250;

constexpr VolumeLayout modelLayouts[] = {
    {.fatType = 12, .bytesPerSector = 128, .clusterCount = 3000, .fill = 0xA5},
    {.fatType = 12, .clusterCount = 500, .rootEntryCount = 64, .fill = 0xA5},
    {.fatType = 12, .sectorsPerCluster = 8, .clusterCount = 4084, .rootEntryCount = 32},
    {.fatType = 16, .sectorsPerCluster = 4, .clusterCount = 5000, .fill = 0x41},
    {.fatType = 16, .bytesPerSector = 1024, .sectorsPerCluster = 64, .clusterCount = 4087},
    {.fatType = 32, .clusterCount = 20000, .fill = 0xA5},
    {.fatType = 32, .bytesPerSector = 2048, .clusterCount = 65525},
    {.fatType = 32,
     .bytesPerSector = 4096,
     .sectorsPerCluster = 128,
     .clusterCount = 300,
     .fill = 0x0F}};

// With clusters marked bad, now and then most of them, for free space that is scarce and scattered.
ImageBuilder MakeVolume(size_t geometry, Rng& rng) {
    ImageBuilder builder(modelLayouts[geometry % std::size(modelLayouts)]);
    const uint32_t count = builder.geometry.clusterCount;
    const bool isLarge = builder.geometry.clusterBytes > 65536;
    const uint64_t few = isLarge ? 50 : Below(rng, 2) == 0 ? 60 : count;
    const uint64_t kept = 10 + Below(rng, few);
    const bool isWhole = !isLarge && Below(rng, 2) == 0;
    for (uint32_t cluster = 3; cluster < count + 2 && !isWhole; ++cluster) {
        if (Below(rng, count) >= kept) {
            builder.SetFatEntry(cluster, builder.geometry.badMark);
        }
    }
    FillRandomTree(builder, rng, static_cast<uint32_t>(Below(rng, 2) * 40), 3000);
    return builder;
}

// The first failure, and what was done until then; nothing without failure.
std::string RunSteps(size_t geometry, uint64_t sequence, const Steps& steps) {
    testing::TestPartResultArray failures;
    const testing::ScopedFakeTestPartResultReporter reporter(&failures);
    std::string said;
    Rng rng(sequence);
    const ImageBuilder one = MakeVolume(geometry, rng);
    const ImageBuilder other = MakeVolume(geometry + sequence, rng);
    {
        Model model(one, other);
        for (size_t i = 0; i < steps.size() && failures.size() == 0; ++i) {
            model.Do(steps[i]);
        }
        for (int i = 0; i < 2 && failures.size() == 0; ++i) {
            model.Remount();
            ExpectJudgedSound(model.side->disk);
            model.Switch();
        }
        said = model.said;
    }
    if (failures.size() == 0) {
        return "";
    }
    const testing::TestPartResult& first = failures.GetTestPartResult(0);
    return "line " + std::to_string(first.line_number()) + ": " + first.message() +
           "\nafter this:\n" + said;
}

class ChangeModel : public testing::TestWithParam<size_t> {};

TEST_P(ChangeModel, ShowsWhatWasDone) {
    uint64_t left = NumberFromEnvironment("FATVOL_MODEL_OPERATIONS", 3000);
    for (uint64_t sequence = NumberFromEnvironment("FATVOL_TEST_SEQUENCE", 1);
         left > 0 && !HasFailure(); ++sequence) {
        Steps steps = MakeSteps(sequence, std::min<size_t>(left, stepsPerSequence));
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
}

INSTANTIATE_TEST_SUITE_P(Geometries, ChangeModel,
                         testing::Range(size_t{0}, std::size(modelLayouts)));

}  // namespace
}  // namespace fatvol::test
