// Lets tests see, and refuse, what the library asks its allocators for: programs that are linked
// with the target fatvol_allocation_hook, where the linker can lead allocations astray.
#pragma once

#include <cstddef>

namespace fatvol::test {

// Called, unless null, before each allocation of the library; false refuses it. The storages' and
// the tests' own `new` is not led here. `calloc`, which the library takes its cache of 64 MiB from,
// once, says 0 bytes.
inline bool (*mayAllocate)(std::size_t bytes) = nullptr;

}  // namespace fatvol::test
