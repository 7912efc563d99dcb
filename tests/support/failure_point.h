// What fails in a test, and when.
#pragma once

#include <cstdint>

namespace fatvol::test {

// Counts events of some kinds and makes the n-th fail, once or with all after it.
struct FailurePoint {
    bool reads = false, writes = false, allocations = false;
    bool onwards = false;
    bool tearsWrites = false;  // a failing write stores the first half of its bytes
    uint64_t failAt = 0;       // 1 is the first; 0 none
    uint64_t seen = 0, failed = 0;

    bool Fails(bool isOfThem) {
        seen += isOfThem;
        const bool fails = isOfThem && failAt != 0 && (onwards ? seen >= failAt : seen == failAt);
        failed += fails;
        return fails;
    }
};
// That of the model's first storage; allocations ask it as well where a test leads them there.
inline FailurePoint failurePoint;

}  // namespace fatvol::test
