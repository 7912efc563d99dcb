#include <new>

#include "allocation_hook.h"

namespace {

bool MayAllocate(std::size_t bytes) {
    return !fatvol::test::mayAllocate || fatvol::test::mayAllocate(bytes);
}

}  // namespace

#define HOOK(name, parameters, told, ...)                                \
    extern "C" void* __real_##name parameters;                           \
    extern "C" void* __wrap_##name parameters {                          \
        return MayAllocate(told) ? __real_##name(__VA_ARGS__) : nullptr; \
    }

HOOK(malloc, (std::size_t bytes), bytes, bytes)
HOOK(calloc, (std::size_t count, std::size_t bytes), 0, count, bytes)
HOOK(realloc, (void* memory, std::size_t bytes), bytes, memory, bytes)
HOOK(_ZnwmRKSt9nothrow_t, (std::size_t bytes, const std::nothrow_t& tag), bytes, bytes, tag)
HOOK(_ZnamRKSt9nothrow_t, (std::size_t bytes, const std::nothrow_t& tag), bytes, bytes, tag)
