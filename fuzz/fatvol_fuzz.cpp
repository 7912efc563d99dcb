// The fuzzer's entrance: each input is a scenario of the hostile tests, without the huge volumes.
// Build with the preset `fuzz`.
#include <cstdio>
#include <cstdlib>

#include "hostile/hostile_volume.h"
#include "hostile/scenario.h"

using namespace fatvol::test;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScenarioTotals totals;
    for (size_t i = 0; i < 2; ++i) {
        if (size > i && data[i] % volumeKinds >= smallVolumeKinds) {
            return -1;
        }
    }
    const std::string wrong = RunScenario({data, size}, totals, Checks::Rarely);
    if (!wrong.empty()) {
        std::fputs(wrong.c_str(), stderr);
        std::abort();
    }
    return 0;
}
