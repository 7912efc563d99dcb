#include "dir/dir_slots.h"

#include <algorithm>

#include "data/fat_file.h"
#include "data/file_data.h"
#include "dir/dir_listing.h"
#include "volume/fat_volume.h"
#include "volume/resize_file.h"

namespace fatvol {
namespace {

constexpr std::uint32_t ChunkSlots = 64;  // 2048 bytes

// The part of a range of slots that lies within the directory's data.
struct SlotRange {
    std::uint64_t position;  // bytes
    std::uint32_t length;    // bytes; 0 beyond the data
};

SlotRange ClipSlots(const CFatFile& directory, std::uint32_t slot, std::uint32_t count) {
    const std::uint64_t position = std::uint64_t{slot} * DirEntrySize;
    const std::uint64_t size = DataSize(directory);
    const std::uint64_t left = size > position ? size - position : 0;
    const std::uint64_t length = std::min(std::uint64_t{count} * DirEntrySize, left);
    return {position, static_cast<std::uint32_t>(length)};
}

// Brings every block that holds a part of the range into the cache, which makes a following
// transfer there a matter of memory alone.
FatStatus CacheBlocks(CFatFile& directory, const SlotRange& range) {
    const std::uint64_t end = range.position + range.length;
    for (std::uint64_t at = range.position; at < end; at = (at | BlockMask) + 1) {
        std::uint8_t byte = 0;
        std::uint32_t read = 0;
        const FatStatus status = ReadFileData(directory, at, 1, &byte, &read, DataSize(directory));
        if (Failed(status)) {
            return status;
        }
    }
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus ReadDirSlots(CFatFile& directory, std::uint32_t slot, std::uint32_t count, void* buffer) {
    const SlotRange range = ClipSlots(directory, slot, count);
    if (range.length == 0) {
        return STATUS_END_OF_FILE;
    }
    std::uint32_t read = 0;
    return ReadFileData(directory, range.position, range.length, buffer, &read,
                        DataSize(directory));
}

FatStatus WriteDirSlots(CFatFile& directory, std::uint32_t slot, std::uint32_t count,
                        const void* buffer) {
    const SlotRange range = ClipSlots(directory, slot, count);
    if (range.length == 0) {
        return STATUS_END_OF_FILE;
    }
    // A run across two blocks of which only one can be had must not be torn.
    const FatStatus status = CacheBlocks(directory, range);
    if (Failed(status)) {
        return status;
    }
    std::uint32_t written = 0;
    return WriteFileData(directory, range.position, range.length, buffer, &written,
                         DataSize(directory));
}

namespace {

FatStatus MakeEndMark(CFatFile& directory, std::uint32_t slot, bool* isChanged) {
    ShortEntry entry;
    FatStatus status = ReadDirSlots(directory, slot, 1, &entry);
    if (Failed(status) || entry.DIR_Name[0] == EndMark) {
        return status;
    }
    entry.DIR_Name[0] = EndMark;
    status = WriteDirSlots(directory, slot, 1, &entry);
    *isChanged = *isChanged || Succeeded(status);
    return status;
}

// What another system has left behind the end mark must not show as entries, after a cut between
// two sectors either: the sectors up to that of a slot begin with end marks, on the volume too,
// before anything else changes. If they cannot be written the next flush tells.
FatStatus ClearSectorsBehindEnd(CFatFile& directory, std::uint32_t lastSlot) {
    FatVolume& volume = *directory.volume;
    const std::uint32_t perSector = volume.bytesPerSector / DirEntrySize;
    const std::uint64_t slotCount = DataSize(directory) / DirEntrySize;
    std::uint32_t slot = (directory.listing->endSlot / perSector + 1) * perSector;
    FatStatus status = STATUS_SUCCESS;
    bool isChanged = false;
    for (; slot <= lastSlot && slot < slotCount && Succeeded(status); slot += perSector) {
        status = MakeEndMark(directory, slot, &isChanged);
    }
    if (isChanged && Succeeded(status)) {
        volume.hasUntoldFailure = !FlushFileBlocks(directory) || volume.hasUntoldFailure;
    }
    return status;
}

}  // namespace

FatStatus WriteNewRun(CFatFile& directory, std::uint32_t firstSlot, std::uint32_t count,
                      const void* entries) {
    DirListing& listing = *directory.listing;
    const std::uint32_t end = firstSlot + count;
    const bool coversMark = end > listing.endSlot;
    FatStatus status = coversMark ? ClearSectorsBehindEnd(directory, end) : STATUS_SUCCESS;
    if (Succeeded(status) && coversMark && end < DataSize(directory) / DirEntrySize) {
        bool isChanged = false;
        status = MakeEndMark(directory, end, &isChanged);
    }
    if (Succeeded(status)) {
        status = WriteDirSlots(directory, firstSlot, count, entries);
    }
    if (Succeeded(status)) {
        listing.endSlot = std::max(listing.endSlot, end);
    }
    return status;
}

FatStatus MoveDirSlots(CFatFile& directory, std::uint32_t from, std::uint32_t count,
                       std::uint32_t to) {
    ShortEntry chunk[ChunkSlots];
    for (std::uint32_t moved = 0; moved < count; moved += ChunkSlots) {
        const std::uint32_t inChunk = std::min(count - moved, ChunkSlots);
        FatStatus status = ReadDirSlots(directory, from + moved, inChunk, chunk);
        if (Succeeded(status)) {
            status = WriteDirSlots(directory, to + moved, inChunk, chunk);
        }
        if (Failed(status)) {
            return status;
        }
    }
    MoveDirItems(*directory.listing, from, count, to);
    return STATUS_SUCCESS;
}

namespace {

bool IsFixedRoot(const CFatFile& directory) {
    return directory.firstCluster == FixedRootCluster;
}

FatStatus GrowDirectory(CFatFile& directory, std::uint32_t missingSlots) {
    const std::uint32_t slotCount = directory.listing->slots.bitCount;
    if (IsFixedRoot(directory) || slotCount + missingSlots > MaxDirSlots) {
        return STATUS_DISK_FULL;
    }
    const std::uint64_t size = DataSize(directory) + std::uint64_t{missingSlots} * DirEntrySize;
    return ResizeFile(directory, static_cast<std::uint32_t>(size), nullptr, nullptr);
}

// Shifts used runs down until `count` free slots stand together, as there are enough of them. They
// cover everything that the runs leave behind, so the new run replaces it all.
FatStatus Compact(CFatFile& directory, std::uint32_t count, std::uint32_t* firstSlot) {
    const Bitmap& slots = directory.listing->slots;
    // With the whole directory (2 MiB at the most) cached nothing can fail half-way.
    FatStatus cached = CacheBlocks(directory, ClipSlots(directory, 0, slots.bitCount));
    if (Succeeded(cached)) {
        cached = ClearSectorsBehindEnd(directory, slots.bitCount);  // while all stands once
    }
    if (Failed(cached)) {
        return cached;
    }
    std::uint32_t write = 0;
    std::uint32_t gathered = FindNextClearRun(slots, 0, &write);
    std::uint32_t usedStart = write + gathered;
    while (gathered < count) {
        std::uint32_t nextFree = slots.bitCount;
        const std::uint32_t length = FindNextClearRun(slots, usedStart, &nextFree);
        const FatStatus status = MoveDirSlots(directory, usedStart, nextFree - usedStart, write);
        if (Failed(status)) {
            return status;
        }
        write += nextFree - usedStart;
        gathered += length;
        usedStart = nextFree + length;
    }
    *firstSlot = write;
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus AllocateDirSlots(CFatFile& directory, std::uint32_t count, std::uint32_t* firstSlot) {
    Bitmap& slots = directory.listing->slots;
    const std::uint32_t free = CountClearBits(slots);
    FatStatus status = STATUS_SUCCESS;
    if (count > free) {
        status = GrowDirectory(directory, count - free);
    }
    if (Failed(status)) {
        return status;
    }
    *firstSlot = FindClearBits(slots, count, 0);
    if (*firstSlot == NoBit) {
        status = Compact(directory, count, firstSlot);
    }
    if (Succeeded(status)) {
        SetBits(slots, *firstSlot, count);
    }
    return status;
}

void FreeDirSlots(CFatFile& directory, std::uint32_t firstSlot, std::uint32_t count) {
    ClearBits(directory.listing->slots, firstSlot, count);
}

}  // namespace fatvol
