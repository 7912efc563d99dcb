// A scenario: two volumes, either of which may be hostile, and a list of calls of a host that may
// be hostile too. The fuzzer and random tests run the same ones.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace fatvol::test {

// The first two bytes of a scenario choose the kinds of its volumes. The last kinds are huge, and
// so slow that only their own test takes them; the last of the small ones is a raw image.
inline constexpr size_t smallVolumeKinds = 8, volumeKinds = 10;

// How much of what there was in scenarios; of a budget, the most that a call has used.
using ScenarioTotals = std::map<std::string_view, uint64_t>;

// Runs a scenario, for which any bytes will do, and returns what it found wrong: nothing when
//  - every call ended within its budgets of memory and storage calls, which the sizes of the
//    volumes give, and kept within the volumes;
//  - the library's invariants held after each `callsPerCheck` calls and at the end, and listings
//    agreed with their directories;
//  - everything was released at the end;
//  - a volume that was sound, and whose storage kept its word, is sound at the end.
std::string RunScenario(std::span<const uint8_t> bytes, ScenarioTotals& totals,
                        uint64_t callsPerCheck = 1);

}  // namespace fatvol::test
