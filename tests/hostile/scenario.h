// A scenario: two volumes, either of which may be hostile, and a list of calls of a host that may
// be hostile too. The fuzzer and random tests run the same ones.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace fatvol::test {

struct ScenarioTotals {
    uint64_t scenarios = 0, hostileVolumes = 0, mounts = 0, calls = 0, storageCalls = 0;
    uint64_t hostileStorages = 0;  // storages that began to fail or to lie
    uint64_t soundImages = 0;      // volumes that had to be sound at the end, and were judged
    // The most that a call asked for, as a part of its budgets.
    double memory = 0, callsToStorage = 0;
};

enum class Checks {
    EachCall,
    Rarely  // of the invariants: after every 16th call and at the end, for speed
};

// Runs a scenario and returns what it found wrong: nothing when
//  - every call ended within its budgets of memory and storage calls, which the sizes of the
//    volumes give, and kept within the volumes;
//  - the library's invariants held after each, and listings agreed with their directories;
//  - everything was released at the end;
//  - a volume that was sound, and whose storage kept its word, is sound at the end.
std::string RunScenario(std::span<const uint8_t> bytes, ScenarioTotals& totals,
                        Checks checks = Checks::EachCall);

}  // namespace fatvol::test
