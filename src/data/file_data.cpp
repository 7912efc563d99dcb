#include "data/file_data.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "data/direct_transfer.h"
#include "data/fat_file.h"
#include "data/remaining_transfer.h"

namespace fatvol {

TransferRun* TransferRunTable = nullptr;

namespace {

enum class Direction { Read, Write };

// A transfer being planned: what is still to be looked at, and the runs found so far.
struct Plan : RemainingTransfer {
    CFatFile& file;
    Direction direction;
    std::uint32_t transferred = 0;
    std::uint32_t runCount = 0;
};

// Copies between a block and the caller's memory. The length may be 0 and the memory null.
void CopyBlock(Direction direction, CacheBlock& block, std::uint32_t inBlock, std::uint8_t* memory,
               std::uint32_t length) {
    if (direction == Direction::Write) {
        block.dirty = 1;
    }
    if (length == 0) {
        return;
    }
    if (direction == Direction::Write) {
        std::memcpy(block.data + inBlock, memory, length);
    } else {
        std::memcpy(memory, block.data + inBlock, length);
    }
}

void CopyCached(Plan& plan, CacheBlock& block, std::uint32_t inBlock, std::uint32_t length) {
    CopyBlock(plan.direction, block, inBlock, plan.memory, length);
    plan.transferred += length;
    plan.Advance(length);
}

// Records a run that begins at the plan's offset and goes on up to a cached block or the end.
void PlanUncachedRun(Plan& plan) {
    TransferRun& run = TransferRunTable[plan.runCount++];
    run.buffer = plan.memory;
    run.fileOffset = plan.offset;
    run.headOffset = static_cast<std::uint32_t>(plan.offset & BlockMask);
    run.firstBlock = run.endBlock = BlockNumber(plan.offset);
    run.length = 0;
    std::uint32_t inBlock = std::min(CacheBlockSize - run.headOffset, plan.length);
    do {
        run.length += inBlock;
        plan.Advance(inBlock);
        ++run.endBlock;
        run.tailLength = plan.length == 0 ? inBlock & BlockMask : 0;
        inBlock = std::min(CacheBlockSize, plan.length);
    } while (plan.length > 0 && !FindBlock(plan.file.blocks, run.endBlock));
}

// Copies what is cached and records the rest. A transfer of no bytes inside a block takes part as
// a run of length 0, which caches that block.
void MakePlan(Plan& plan) {
    bool inside = (plan.offset & BlockMask) != 0;
    while (plan.length > 0 || inside) {
        const auto inBlock = static_cast<std::uint32_t>(plan.offset & BlockMask);
        if (CacheBlock* block = FindBlock(plan.file.blocks, BlockNumber(plan.offset))) {
            CopyCached(plan, *block, inBlock, std::min(CacheBlockSize - inBlock, plan.length));
        } else {
            PlanUncachedRun(plan);
        }
        inside = false;
    }
}

// Enters a claimed block with its data into the file's index, or gives it back.
FatStatus EnterBlock(CFatFile& file, CacheBlock& block, std::uint64_t fileOffset,
                     Direction direction) {
    block.owner = &file;
    block.fileOffset = fileOffset;
    block.dirty = direction == Direction::Write ? 1 : 0;
    const FatStatus status = AddBlock(file.blocks, BlockNumber(fileOffset), block);
    if (Failed(status)) {
        GiveBackBlock(block);
    }
    return status;
}

// Caches the block at a file offset with what the volume holds; bytes past the limit are zero.
FatStatus CacheFilledBlock(CFatFile& file, std::uint64_t fileOffset, std::uint64_t limit,
                           Direction direction, CacheBlock** filled) {
    CacheBlock* block = nullptr;
    FatStatus status = ClaimBlock(&block);
    if (Failed(status)) {
        return status;
    }
    const auto length =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(limit - fileOffset, CacheBlockSize));
    status = DirectRead(file, fileOffset, length, block->data);
    if (Failed(status)) {
        GiveBackBlock(*block);
        return status;
    }
    std::memset(block->data + length, 0, CacheBlockSize - length);
    *filled = block;
    return EnterBlock(file, *block, fileOffset, direction);
}

// Caches a block whose whole content the caller's memory holds.
FatStatus CacheWholeBlock(CFatFile& file, std::uint64_t fileOffset, Direction direction,
                          const std::uint8_t* content) {
    CacheBlock* block = nullptr;
    const FatStatus status = ClaimBlock(&block);
    if (Failed(status)) {
        return status;
    }
    std::memcpy(block->data, content, CacheBlockSize);
    return EnterBlock(file, *block, fileOffset, direction);
}

// Reads straight into the caller's memory, or through a buffer of our own when that is at an odd
// address, which a host's device transfers may not be able to reach.
FatStatus ReadWholeBlocks(const CFatFile& file, std::uint64_t offset, std::uint32_t length,
                          std::uint8_t* buffer) {
    if (reinterpret_cast<std::uintptr_t>(buffer) % 2 == 0) {
        return DirectRead(file, offset, length, buffer);
    }
    const std::unique_ptr<std::uint8_t[]> even(new (std::nothrow) std::uint8_t[length]);
    if (!even) {
        return STATUS_NO_MEMORY;
    }
    const FatStatus status = DirectRead(file, offset, length, even.get());
    if (Succeeded(status)) {
        std::memcpy(buffer, even.get(), length);
    }
    return status;
}

// A block at either end of a run, which the run covers in part: filled first, then copied.
FatStatus TransferPart(CFatFile& file, RemainingTransfer& rest, std::uint32_t length,
                       std::uint64_t limit, Direction direction) {
    const auto inBlock = static_cast<std::uint32_t>(rest.offset & BlockMask);
    CacheBlock* block = nullptr;
    const FatStatus status =
        CacheFilledBlock(file, rest.offset - inBlock, limit, direction, &block);
    if (Succeeded(status)) {
        CopyBlock(direction, *block, inBlock, rest.memory, length);
        rest.Advance(length);
    }
    return status;
}

FatStatus TransferWholeBlocks(CFatFile& file, RemainingTransfer& rest, std::uint32_t tailLength,
                              Direction direction) {
    FatStatus status = STATUS_SUCCESS;
    if (direction == Direction::Read && rest.length > tailLength) {
        status = ReadWholeBlocks(file, rest.offset, rest.length - tailLength, rest.memory);
    }
    while (Succeeded(status) && rest.length > tailLength) {
        status = CacheWholeBlock(file, rest.offset, direction, rest.memory);
        rest.Advance(CacheBlockSize);
    }
    return status;
}

FatStatus TransferUncachedRun(CFatFile& file, const TransferRun& run, std::uint64_t limit,
                              Direction direction) {
    RemainingTransfer rest{run.fileOffset, run.length, run.buffer};
    FatStatus status = STATUS_SUCCESS;
    if (run.headOffset != 0) {
        status = TransferPart(file, rest, std::min(CacheBlockSize - run.headOffset, run.length),
                              limit, direction);
        if (Failed(status) || rest.length == 0) {
            return status;
        }
    }
    status = TransferWholeBlocks(file, rest, run.tailLength, direction);
    if (Succeeded(status) && run.tailLength != 0) {
        status = TransferPart(file, rest, run.tailLength, limit, direction);
    }
    return status;
}

FatStatus TransferFileData(Plan plan, std::uint64_t limit, std::uint32_t* transferred) {
    MakePlan(plan);
    *transferred = plan.transferred;
    for (std::uint32_t i = 0; i < plan.runCount; ++i) {
        const TransferRun& run = TransferRunTable[i];
        const FatStatus status = TransferUncachedRun(plan.file, run, limit, plan.direction);
        if (Failed(status)) {
            return status;
        }
        *transferred += run.length;
    }
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus ReadFileData(CFatFile& file, std::uint64_t offset, std::uint32_t length, void* buffer,
                       std::uint32_t* transferred, std::uint64_t limit) {
    return TransferFileData(
        {{offset, length, static_cast<std::uint8_t*>(buffer)}, file, Direction::Read}, limit,
        transferred);
}

FatStatus WriteFileData(CFatFile& file, std::uint64_t offset, std::uint32_t length,
                        const void* buffer, std::uint32_t* transferred, std::uint64_t limit) {
    *transferred = 0;
    if (offset + length > file.allocatedSize) {
        return STATUS_FILE_CORRUPT_ERROR;
    }
    // Writing only reads the caller's memory.
    auto* memory = const_cast<std::uint8_t*>(static_cast<const std::uint8_t*>(buffer));
    return TransferFileData({{offset, length, memory}, file, Direction::Write}, limit, transferred);
}

}  // namespace fatvol
