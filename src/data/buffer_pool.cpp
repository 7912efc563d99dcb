#include "data/buffer_pool.h"

#include <cstdlib>

#include "platform/allocation.h"

namespace fatvol {

BufferPool* RunArrayPool = nullptr;
BufferPool* IndexNodePool = nullptr;

namespace {

void FreeRecords(BufferPool& pool, std::uint32_t count) {
    for (; count > 0; --count) {
        std::free(pool.stack[static_cast<std::uint32_t>(pool.top--)]);
    }
}

// Puts 16 new records on the empty stack, or none when memory runs out on the way.
bool Grow(BufferPool& pool) {
    for (std::uint32_t made = 0; made < BufferPool::Step; ++made) {
        void* record = std::malloc(pool.recordSize);
        if (!record) {
            FreeRecords(pool, made);
            return false;
        }
        pool.stack[static_cast<std::uint32_t>(++pool.top)] = record;
    }
    pool.total += BufferPool::Step;
    return true;
}

}  // namespace

BufferPool::~BufferPool() {
    if (stack) {
        FreeRecords(*this, static_cast<std::uint32_t>(top + 1));
    }
}

std::unique_ptr<BufferPool> CreatePool(std::uint32_t recordSize) {
    auto pool = TryNew<BufferPool>();
    if (!pool) {
        return nullptr;
    }
    pool->recordSize = recordSize;
    pool->stack = TryNewArray<void*>(BufferPool::StackCapacity);
    return pool->stack && Grow(*pool) ? std::move(pool) : nullptr;
}

void* TakeRecord(BufferPool& pool) {
    if (pool.inUse == pool.total && !Grow(pool)) {
        return nullptr;
    }
    ++pool.inUse;
    return pool.stack[static_cast<std::uint32_t>(pool.top--)];
}

void GiveRecord(BufferPool& pool, void* record) {
    pool.stack[static_cast<std::uint32_t>(++pool.top)] = record;
    --pool.inUse;
    if (pool.top == static_cast<std::int32_t>(BufferPool::StackCapacity) - 1) {
        FreeRecords(pool, BufferPool::Step);
        pool.total -= BufferPool::Step;
    }
}

bool IsSound(const BufferPool& pool) {
    return pool.total == pool.inUse + static_cast<std::uint32_t>(pool.top + 1) &&
           pool.total % BufferPool::Step == 0 &&
           pool.top < static_cast<std::int32_t>(BufferPool::StackCapacity) - 1;
}

}  // namespace fatvol
