// The slots of a directory: reading, writing, reserving and moving them. A failed write of slots
// has changed none of them.
#pragma once

#include <cstdint>

#include "dir/dir_entry.h"
#include "storage/fat_status.h"

namespace fatvol {

class CFatFile;

// Reads or writes `count` (at least 1) slots from `slot` on, cut off at the directory's data size.
// STATUS_END_OF_FILE when the first one lies at or beyond it, otherwise the failure of the data
// transfer. The buffer holds 32 bytes per slot.
FatStatus ReadDirSlots(CFatFile& directory, std::uint32_t slot, std::uint32_t count, void* buffer);
FatStatus WriteDirSlots(CFatFile& directory, std::uint32_t slot, std::uint32_t count,
                        const void* buffer);

// Writes the entries of a new run to reserved slots. Where they cover the end mark, the slot after
// them becomes the end mark first, so that what stands behind it stays dead.
FatStatus WriteNewRun(CFatFile& directory, std::uint32_t firstSlot, std::uint32_t count,
                      const void* entries);

// Reserves `count` (1 to MaxRunSlots) consecutive slots, which are marked in use. A directory with
// enough free slots but none of them together is compacted; one with too few grows.
// STATUS_DISK_FULL when the fixed root directory or a directory of MaxDirSlots slots has no room;
// other failures are those of growing or of reading the directory. After a failure no slot is
// reserved.
FatStatus AllocateDirSlots(CFatFile& directory, std::uint32_t count, std::uint32_t* firstSlot);

// Gives reserved slots back that were not written.
void FreeDirSlots(CFatFile& directory, std::uint32_t firstSlot, std::uint32_t count);

// Moves `count` slots from `from` down to `to`, on the medium and in the listing. What stood in the
// slots left behind stays there for the caller to overwrite. A failure may have moved a part: the
// caller has brought the blocks into the cache, so that none occurs.
FatStatus MoveDirSlots(CFatFile& directory, std::uint32_t from, std::uint32_t count,
                       std::uint32_t to);

}  // namespace fatvol
