// The workload of the tests of failures and of cut power: random changes of two volumes, the first
// of which fails, or loses power.
#pragma once

#include <cstdlib>

#include "support/allocation_hook.h"
#include "volume/model_changes.h"

namespace fatvol::test {

// A volume of each FAT type with a tree, and a file larger than the block cache; for 0 an empty
// one.
inline ImageBuilder BuildStart(uint32_t fatType) {
    if (fatType == 0) {
        return ImageBuilder({.fatType = 12, .clusterCount = 500, .rootEntryCount = 64});
    }
    // The FAT32 has five blocks: more than collect before they are written.
    const auto [sectorsPerCluster, clusterCount] = fatType == 12   ? std::pair(64U, 2600U)
                                                   : fatType == 16 ? std::pair(4U, 41000U)
                                                                   : std::pair(1U, 300000U);
    ImageBuilder builder({.fatType = fatType,
                          .sectorsPerCluster = sectorsPerCluster,
                          .clusterCount = clusterCount,
                          .rootEntryCount = 256,
                          .fill = 0xA5});
    EntryOptions huge;  // in two pieces
    huge.size = hugeBytes;
    const uint32_t clusters = hugeBytes / builder.geometry.clusterBytes;
    for (uint32_t i = 0; i < clusters; ++i) {
        huge.clusters.push_back(300 + i + (i < clusters / 2 ? 0 : 50));
    }
    builder.AddFile(ImageBuilder::root, hugeName, {}, huge);
    // Free space that is scattered over all blocks of the FAT.
    for (uint32_t cluster = 140000; cluster < clusterCount; ++cluster) {
        if (cluster % 2048 >= 32) {
            builder.SetFatEntry(cluster, builder.geometry.badMark);
        }
    }
    Rng rng(fatType);
    FillRandomTree(builder, rng, 120, 3000);
    return builder;
}

// The same each time.
inline const ImageBuilder& StartOf(uint32_t fatType) {
    static std::map<uint32_t, ImageBuilder> starts;
    const auto found = starts.find(fatType);
    return found != starts.end() ? found->second
                                 : starts.emplace(fatType, BuildStart(fatType)).first->second;
}

// A run of random steps.
struct Workload : Model {
    // The failure counts from here on, before the library is initialised.
    Workload(uint32_t fatType, uint64_t sequence, const FailurePoint& failure = {})
        : Model(Begin(fatType, failure), StartOf(0)), steps(MakeSteps(sequence, 120)) {}
    void RunAll() {
        std::for_each(steps.begin(), steps.end(), [&](uint64_t step) { Do(step); });
    }

    const Steps steps;

private:
    static const ImageBuilder& Begin(uint32_t fatType, const FailurePoint& failure) {
        mayAllocate = [](size_t) { return !failurePoint.Fails(failurePoint.allocations); };
        failurePoint = failure;
        return StartOf(fatType);
    }
};

// Calls `action` for some workloads: FATVOL_WORKLOADS is their number, FATVOL_TEST_SEQUENCE the
// first one. Those from 16 to 18 have cuts that only the right order of links survives.
template <class Action>
void ForWorkloads(Action action) {
    const uint64_t first = NumberFromEnvironment("FATVOL_TEST_SEQUENCE", 16);
    const uint64_t count = NumberFromEnvironment("FATVOL_WORKLOADS", 3);
    for (uint64_t sequence = first; sequence < first + count; ++sequence) {
        SCOPED_TRACE("workload " + std::to_string(sequence));
        action(sequence);
    }
}

// Calls `action` for each of the numbers 1 to `count` (FATVOL_RELIABILITY=full), or for about
// `sample` of them.
template <class Action>
void ForEvents(uint64_t count, uint64_t sample, Action action) {
    const bool isFull = std::getenv("FATVOL_RELIABILITY") != nullptr;
    const uint64_t some = sample == 0 ? count + 1 : std::max<uint64_t>(count / sample, 1);
    const uint64_t stride = isFull ? 1 : some;
    for (uint64_t n = 1 + Rng(count)() % stride; n <= count; n += stride) {
        action(n);
    }
}

}  // namespace fatvol::test
