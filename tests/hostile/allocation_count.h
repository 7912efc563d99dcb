// What the library asks its allocators for.
#pragma once

#include <cstdint>

namespace fatvol::test {

// Bytes asked for in all; 0 where the linker cannot lead allocations to a count.
uint64_t AllocatedBytes();

// Allocations from its making to its end are the storage's own and not counted.
class UncountedAllocations {
public:
    UncountedAllocations();
    ~UncountedAllocations();
    UncountedAllocations(const UncountedAllocations&) = delete;
    UncountedAllocations& operator=(const UncountedAllocations&) = delete;
};

}  // namespace fatvol::test
