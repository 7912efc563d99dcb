#include <cstddef>
#include <new>

#include "allocation_count.h"

namespace {

uint64_t allocatedBytes = 0;
bool isCounting = true;

std::size_t Count(std::size_t size) {
    allocatedBytes += isCounting ? size : 0;
    return size;
}

}  // namespace

// The linker leads the allocations of the library, and of the tests, here; not calloc, which the
// library takes its cache of 64 MiB from, once.
// clang-format off
#define COUNTED(name, parameters, size, ...)     \
    extern "C" void* __real_##name parameters;   \
    extern "C" void* __wrap_##name parameters {  \
        Count(size);                             \
        return __real_##name(__VA_ARGS__);       \
    }
COUNTED(malloc, (std::size_t size), size, size)
COUNTED(realloc, (void* memory, std::size_t size), size, memory, size)
COUNTED(_ZnwmRKSt9nothrow_t, (std::size_t size, const std::nothrow_t& tag), size, size, tag)
COUNTED(_ZnamRKSt9nothrow_t, (std::size_t size, const std::nothrow_t& tag), size, size, tag)
// clang-format on

namespace fatvol::test {

uint64_t AllocatedBytes() {
    return allocatedBytes;
}
UncountedAllocations::UncountedAllocations() {
    isCounting = false;
}
UncountedAllocations::~UncountedAllocations() {
    isCounting = true;
}

}  // namespace fatvol::test
