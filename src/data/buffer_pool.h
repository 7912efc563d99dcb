// Fixed-size records that are taken and given back very often. A pool grows and shrinks by 16
// records and keeps at most 32 of them idle, so that a steady load allocates nothing. Records are
// raw memory.
//
// Invariants:
//  1. total = inUse + top + 1, a multiple of 16.
//  2. At most 31 records are on the stack between calls.
#pragma once

#include <cstdint>
#include <memory>

namespace fatvol {

struct BufferPool {
    static constexpr std::uint32_t StackCapacity = 32;
    static constexpr std::uint32_t Step = 16;

    std::unique_ptr<void*[]> stack;  // free records; the top one is handed out next
    std::int32_t top = -1;           // -1 when the stack is empty
    std::uint32_t inUse = 0;         // records handed out
    std::uint32_t total = 0;         // records that exist
    std::uint32_t recordSize = 0;    // bytes

    BufferPool() = default;
    BufferPool(const BufferPool&) = delete;
    BufferPool& operator=(const BufferPool&) = delete;
    ~BufferPool();  // frees the records on the stack: all of them must have been given back
};

// The pools of the library, from Fat_LibInitialize to Fat_LibTerminate: the first arrays of run
// lists, and the nodes of the files' block indexes.
// The library's state owns them.
extern BufferPool* RunArrayPool;
extern BufferPool* IndexNodePool;

// A pool with 16 records on its stack; null when there is no memory.
std::unique_ptr<BufferPool> CreatePool(std::uint32_t recordSize);

// One record, which the caller gives back; null when there is no memory.
void* TakeRecord(BufferPool& pool);

// Takes a record back that this pool handed out.
void GiveRecord(BufferPool& pool, void* record);

// Whether the invariants above hold.
bool IsSound(const BufferPool& pool);

}  // namespace fatvol
