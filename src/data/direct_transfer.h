// Transfers between memory and the volume along the clusters of a file, without the cache: they
// fill cache blocks, write them back, and carry the bulk of large reads. A contiguous stretch of
// the file takes one storage call, plus one for a last piece of at most one cluster.
#pragma once

#include <cstdint>

#include "storage/fat_status.h"

namespace fatvol {

class CFatFile;

// Reads `length` bytes (at least 1) of a file at a byte offset. The range must lie below the data
// size. STATUS_FILE_CORRUPT_ERROR when the file's clusters don't cover it; what was read before a
// failure stays in the buffer.
FatStatus DirectRead(const CFatFile& file, std::uint64_t offset, std::uint32_t length,
                     void* destination);

// Writes a file from a byte offset to the end of the cache block there, cut off at the data size.
// At or beyond that nothing is written. Failures as for DirectRead.
FatStatus DirectWrite(const CFatFile& file, std::uint64_t offset, const void* source);

}  // namespace fatvol
