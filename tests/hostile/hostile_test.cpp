// Random scenarios, and those that the fuzzer found worth keeping. FATVOL_HOSTILE_SCENARIOS is the
// number for each test, FATVOL_TEST_SEQUENCE the number of the first.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "api/library_state.h"
#include "hostile_volume.h"
#include "scenario.h"
#include "support/random_tree.h"

namespace fatvol::test {
namespace {

uint64_t NumberFrom(const char* variable, uint64_t otherwise) {
    const char* const text = std::getenv(variable);
    return text ? std::stoull(text) : otherwise;
}

class HostileTest : public testing::Test {
protected:
    ~HostileTest() override {
        if (Library) {
            Fat_LibTerminate();
        }
        std::cout << totals.scenarios << " scenarios, " << totals.mutations << " mutations, "
                  << totals.mounts << " mounts, " << totals.calls << " calls, "
                  << totals.storageCalls << " storage calls, " << totals.failedInTransfer
                  << " with failing or lying storages, " << totals.checkedImages
                  << " volumes judged; the most of a budget: memory " << totals.mostMemory
                  << ", storage calls " << totals.mostStorageCalls << "\n";
    }
    void Expect(const std::vector<uint8_t>& scenario) {
        const std::string wrong = RunScenario(scenario, totals);
        if (!wrong.empty()) {
            RunScenario(scenario, totals, Checks::Trace);
        }
        EXPECT_EQ(wrong, "");
    }
    // Scenarios whose first bytes are given by `Begin`.
    template <class Begin>
    void ExpectRandom(uint64_t count, Begin begin) {
        const uint64_t first = NumberFrom("FATVOL_TEST_SEQUENCE", 0);
        for (uint64_t sequence = first; sequence < first + count; ++sequence) {
            SCOPED_TRACE(sequence);
            Rng rng(sequence);
            std::vector<uint8_t> scenario = RandomBytes(rng, 40 + Below(rng, 400));
            begin(rng, scenario);
            Expect(scenario);
            if (HasFailure()) {
                return;
            }
        }
    }

    const uint64_t scenarioCount = NumberFrom("FATVOL_HOSTILE_SCENARIOS", 6000);
    ScenarioTotals totals;
};

// A byte that asks for one of `count` kinds of volumes from `first` on.
uint8_t KindByte(Rng& rng, size_t first, size_t count) {
    return static_cast<uint8_t>(first + Below(rng, count) + volumeKinds * Below(rng, 25));
}

// Of the small kinds the last is left out: random images are refused at once.
TEST_F(HostileTest, Volumes) {
    ExpectRandom(scenarioCount, [](Rng& rng, std::vector<uint8_t>& scenario) {
        scenario[0] = KindByte(rng, 0, smallVolumeKinds - 1);
        scenario[1] = KindByte(rng, 0, smallVolumeKinds - 1);
    });
}

TEST_F(HostileTest, Hosts) {
    ExpectRandom(scenarioCount, [](Rng& rng, std::vector<uint8_t>& scenario) {
        scenario[0] = KindByte(rng, 0, smallVolumeKinds - 1);
        scenario[1] = KindByte(rng, 0, smallVolumeKinds - 1);
        scenario[2] = scenario[3] = 0;  // mutations
    });
}

TEST_F(HostileTest, HugeVolumes) {
    ExpectRandom(scenarioCount / 100, [](Rng& rng, std::vector<uint8_t>& scenario) {
        scenario[0] = KindByte(rng, smallVolumeKinds, volumeKinds - smallVolumeKinds);
        scenario[1] = KindByte(rng, 0, 1);
        scenario[2] = static_cast<uint8_t>(Below(rng, 3));
    });
}

TEST_F(HostileTest, Corpus) {
    for (const auto& file : std::filesystem::directory_iterator(FATVOL_CORPUS_DIR)) {
        SCOPED_TRACE(file.path().filename());
        std::ifstream stream(file.path(), std::ios::binary);
        Expect(std::vector<uint8_t>(std::istreambuf_iterator<char>(stream), {}));
    }
    EXPECT_GT(totals.scenarios, 0U);
}

}  // namespace
}  // namespace fatvol::test
