// Reading and writing the contents of files and directories through the block cache. A transfer is
// cut into cache blocks: blocks that are cached are copied while the transfer is planned; the
// stretches of uncached blocks between them are then carried out one by one. A write puts nothing
// on the volume itself: it leaves dirty blocks.
//
// Both functions expect offset < limit and offset + length <= limit, where limit is the data size
// of the file.
#pragma once

#include <cstdint>

#include "data/block_cache.h"
#include "storage/fat_status.h"

namespace fatvol {

class CFatFile;

// A maximal stretch of consecutive uncached blocks in a transfer.
struct TransferRun {
    std::uint8_t* buffer;      // the caller's memory for the run's first byte
    std::uint64_t fileOffset;  // of the run's first byte
    std::uint32_t length;      // bytes
    std::uint32_t firstBlock;
    std::uint32_t endBlock;    // one past the last block
    std::uint32_t headOffset;  // in-block offset of a run that starts inside a block, else 0
    std::uint32_t
        tailLength;  // bytes in a last block that is covered in part from its start, else 0
};
static_assert(sizeof(TransferRun) == 40);

// Enough for any transfer: runs are separated by cached blocks.
inline constexpr std::uint32_t TransferRunCount = CacheBlockCount + 1;

// The plan of the transfer under way, from Fat_LibInitialize to Fat_LibTerminate. The library's
// state owns it.
extern TransferRun* TransferRunTable;

// Copies `length` bytes of a file at a byte offset to `buffer`. `*transferred` is the number of
// bytes copied; on success that is `length`. Failures are those of the storage,
// STATUS_FILE_CORRUPT_ERROR where the clusters don't cover the file, and STATUS_NO_MEMORY.
FatStatus ReadFileData(CFatFile& file, std::uint64_t offset, std::uint32_t length, void* buffer,
                       std::uint32_t* transferred, std::uint64_t limit);

// Copies `length` bytes into a file. STATUS_FILE_CORRUPT_ERROR, with nothing changed, when the
// clusters end before the range does. After another failure the blocks changed so far stay
// changed and will be written.
FatStatus WriteFileData(CFatFile& file, std::uint64_t offset, std::uint32_t length,
                        const void* buffer, std::uint32_t* transferred, std::uint64_t limit);

}  // namespace fatvol
