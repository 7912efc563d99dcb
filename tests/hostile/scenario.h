// A scenario: two volumes, either of which may be hostile, and a list of calls of a host that may
// be hostile too. Fuzzers and random tests run the same ones.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace fatvol::test {

struct ScenarioTotals {
    uint64_t scenarios = 0, mutations = 0, mounts = 0, calls = 0, storageCalls = 0;
    uint64_t failedInTransfer = 0;  // scenarios in which the storage failed or lied
    uint64_t checkedImages = 0;     // volumes that had to be sound at the end, and were judged
    double mostMemory = 0;          // that a call asked for, as a part of its budget
    double mostStorageCalls = 0;    // likewise
};

enum class Checks {
    EachCall,
    Rarely,  // of the invariants: after every 16th call and at the end, for speed
    Trace    // like EachCall, and prints the calls
};

// Runs a scenario and returns what it found wrong: nothing when
//  - every call ended within its budgets of memory and storage calls, which the sizes of the
//    volumes give, and kept within the volumes;
//  - the library's invariants held after each;
//  - everything was released at the end;
//  - a volume without mutations, whose storage kept its word, is sound at the end.
std::string RunScenario(std::span<const uint8_t> bytes, ScenarioTotals& totals,
                        Checks checks = Checks::EachCall);

// Whether a scenario uses the huge volumes, which take a hundred times as long.
bool IsSlowScenario(std::span<const uint8_t> bytes);

}  // namespace fatvol::test
