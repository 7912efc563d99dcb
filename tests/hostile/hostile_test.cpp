// Random scenarios, and those that the fuzzer found worth keeping. FATVOL_HOSTILE_SCENARIOS is the
// number for each test, FATVOL_TEST_SEQUENCE the number of the first.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "api/fatvol.h"
#include "scenario.h"
#include "support/environment.h"
#include "support/random_tree.h"

namespace fatvol::test {
namespace {

using Bytes = std::vector<uint8_t>;

class HostileTest : public testing::Test {
protected:
    ~HostileTest() override {
        Fat_LibTerminate();
        for (const auto& [what, count] : totals) {
            std::cout << count << ' ' << what << "\n";
        }
    }

    // Scenarios whose volumes are of `count` kinds from `first` on.
    void RunRandom(uint64_t scenarioCount, size_t first, size_t count, bool isSound) {
        const uint64_t start = NumberFromEnvironment("FATVOL_TEST_SEQUENCE", 0);
        for (uint64_t i = start; i < start + scenarioCount && !HasFailure(); ++i) {
            Rng rng(i);
            Bytes scenario = RandomBytes(rng, 40 + Below(rng, 400));
            for (const size_t side : {0U, 1U}) {
                const uint64_t kind = side == 0 ? first + Below(rng, count) : Below(rng, 3);
                scenario[side] = static_cast<uint8_t>(kind + volumeKinds * Below(rng, 25));
                scenario[2 + side] = isSound ? uint8_t{0} : scenario[2 + side];  // mutations
            }
            EXPECT_EQ(RunScenario(scenario, totals), "") << "sequence " << i;
        }
    }

    const uint64_t scenarios = NumberFromEnvironment("FATVOL_HOSTILE_SCENARIOS", 4000);
    ScenarioTotals totals;
};

// Of the small kinds the last is left out: random images are refused at once.
TEST_F(HostileTest, Volumes) {
    RunRandom(scenarios, 0, smallVolumeKinds - 1, false);
}
TEST_F(HostileTest, Hosts) {
    RunRandom(scenarios, 0, smallVolumeKinds - 1, true);
}
TEST_F(HostileTest, LargeOnes) {
    RunRandom(scenarios / 300, smallVolumeKinds, volumeKinds - smallVolumeKinds, false);
}

TEST_F(HostileTest, Corpus) {
    for (const auto& file : std::filesystem::directory_iterator(FATVOL_CORPUS_DIR)) {
        std::ifstream stream(file.path(), std::ios::binary);
        const Bytes scenario(std::istreambuf_iterator<char>(stream), {});
        EXPECT_EQ(RunScenario(scenario, totals), "") << file.path().filename();
    }
    EXPECT_GT(totals["scenarios"], 0U);
}

}  // namespace
}  // namespace fatvol::test
