// The n-th allocation of the library fails, once or with all that follow, Fat_LibInitialize and
// Fat_Mount included. The linker sends every allocator call that the library makes here; the tests
// themselves use others.
#include <malloc.h>

#include <iostream>
#include <new>

#include "workload.h"

namespace fatvol::test {
namespace {

FailurePoint* allocations = nullptr;

bool IsRefused() {
    return allocations && allocations->Fails();
}

}  // namespace
}  // namespace fatvol::test

#define REPLACE(name, parameters, ...)                                           \
    extern "C" void* __real_##name parameters;                                   \
    extern "C" void* __wrap_##name parameters {                                  \
        return fatvol::test::IsRefused() ? nullptr : __real_##name(__VA_ARGS__); \
    }

REPLACE(malloc, (size_t bytes), bytes)
REPLACE(calloc, (size_t count, size_t bytes), count, bytes)
REPLACE(realloc, (void* memory, size_t bytes), memory, bytes)
REPLACE(_ZnwmRKSt9nothrow_t, (size_t bytes, const std::nothrow_t& tag), bytes, tag)
REPLACE(_ZnamRKSt9nothrow_t, (size_t bytes, const std::nothrow_t& tag), bytes, tag)

namespace fatvol::test {
namespace {

class FailingMemory : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Fat, FailingMemory, testing::Values(12, 16, 32),
                         testing::PrintToStringParamName());

TEST_P(FailingMemory, EveryFailureIsRecoveredFrom) {
    for (const bool onwards : {false, true}) {
        uint64_t failed = 0, lost = 0, refusing = 0;
        const auto run = [&](uint64_t n) {
            SCOPED_TRACE("allocation " + std::to_string(n) + (onwards ? " and later" : ""));
            FailurePoint point{.failAt = n, .onwards = onwards};
            Session session(GetParam());
            // Reading all of the huge file takes longer than everything else together.
            session.sweepBytes = n % 8 == 0 ? session.sweepBytes : 1U << 20;
            allocations = &point;
            session.RunAll();
            allocations = nullptr;
            session.ExpectRecovered();
            failed += point.failed != 0;
            lost += session.lostClusters;
            refusing += session.refused;
            return point.seen;
        };
        const uint64_t count = run(0);
        const struct mallinfo2 before = mallinfo2();
        ForEvents(count, 20, run);
        EXPECT_LE(mallinfo2().uordblks, before.uordblks + (1U << 16));
        std::cout << "FAT" << GetParam() << ", " << (onwards ? "from then on: " : "once: ")
                  << failed << " allocations failed in turn (" << count << " with all sweeps); "
                  << lost << " lost clusters; " << refusing << " volumes refused changes\n";
    }
}

}  // namespace
}  // namespace fatvol::test
