// The fuzzer's entrance: each input is a scenario of the hostile tests. Build with the preset
// `fuzz`.
#include <cstdio>
#include <cstdlib>

#include "hostile/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fatvol::test::ScenarioTotals totals;
    const std::span<const uint8_t> bytes(data, size);
    if (fatvol::test::IsSlowScenario(bytes)) {
        return -1;
    }
    const std::string wrong =
        fatvol::test::RunScenario(bytes, totals, fatvol::test::Checks::Rarely);
    if (!wrong.empty()) {
        std::fputs(wrong.c_str(), stderr);
        std::abort();
    }
    return 0;
}
