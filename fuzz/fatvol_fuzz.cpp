// The fuzzer's entrance: each input is a scenario of the hostile tests, without the huge volumes.
// Build with the preset `fuzz`.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "hostile/scenario.h"

using namespace fatvol::test;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScenarioTotals totals;
    const auto isHuge = [](uint8_t byte) { return byte % volumeKinds >= smallVolumeKinds; };
    if (std::any_of(data, data + std::min<size_t>(size, 2), isHuge)) {
        return -1;
    }
    const std::string wrong = RunScenario({data, size}, totals, 16);  // checks rarely, for speed
    if (!wrong.empty()) {
        std::fputs(wrong.c_str(), stderr);
        std::abort();
    }
    return 0;
}
