#include "dir/dir_change.h"

#include <cstring>

#include "dir/dir_listing.h"
#include "dir/dir_lookup.h"
#include "dir/dir_slots.h"
#include "dir/entry_name.h"
#include "dir/fat_time.h"
#include "dir/short_name.h"
#include "volume/cluster_allocation.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

constexpr std::uint16_t NamePadding = 0xFFFF;

// The entries of a run, in slot order.
struct EntryRun {
    std::uint8_t slots[MaxRunSlots][DirEntrySize];

    std::uint8_t& FirstByte(std::uint32_t index) { return slots[index][0]; }
};

std::uint32_t RunLength(const DirItem& item) {
    return item.longEntryCount + 1;
}

// Splits a name and makes sure that no other entry has its short form. The bit of a volume label
// makes a label of a short entry that stands alone, so an entry that has it needs a long name.
ParsedName ChooseNames(const CFatFile& directory, const char16_t* name, std::uint8_t attributes) {
    ParsedName parsed = ParseEntryName(name);
    const bool taken = !parsed.HasShortForm() || IsShortNameTaken(directory, parsed.shortForm);
    if (taken) {
        GenerateShortName(directory, parsed);
    }
    if (taken || (attributes & AttrVolumeLabel) != 0) {
        parsed.longLength = parsed.nameLength;
    }
    return parsed;
}

ShortEntry MakeShortEntry(const ParsedName& parsed, const EntryContent& content) {
    ShortEntry entry{};
    std::memcpy(entry.DIR_Name, parsed.shortForm, ShortNameSize);
    entry.DIR_Attr = content.attributes;
    const FatTimeStamp now = CurrentFatTimeStamp();
    StoreU16(entry.DIR_CrtTime, now.time);
    StoreU16(entry.DIR_CrtDate, now.date);
    StoreU16(entry.DIR_LstAccDate, now.date);
    StoreU16(entry.DIR_WrtTime, now.time);
    StoreU16(entry.DIR_WrtDate, now.date);
    SetFirstCluster(entry, content.firstCluster);
    SetFileSize(entry, content.sizeBytes);
    return entry;
}

// The long-name entries of a name in front of its short entry.
EntryRun MakeRun(const ParsedName& parsed, std::uint32_t longEntries, const ShortEntry& entry) {
    // The unit after the name is zero; the rest of its last entry is padding.
    char16_t name[MaxLongNameUnits + 1];
    std::memcpy(name, parsed.name, sizeof name);
    for (std::uint32_t i = parsed.longLength + 1; i < longEntries * UnitsPerLongEntry; ++i) {
        name[i] = NamePadding;
    }
    EntryRun run;
    const std::uint8_t checksum = ShortNameChecksum(entry.DIR_Name);
    for (std::uint32_t i = 0; i < longEntries; ++i) {
        LongEntry longEntry;
        FillLongEntry(longEntry, name, longEntries - i, i == 0, checksum);
        std::memcpy(run.slots[i], &longEntry, DirEntrySize);
    }
    std::memcpy(run.slots[longEntries], &entry, DirEntrySize);
    return run;
}

// A new run with its item, for which the indexes of the directory have their places ready.
struct PreparedRun {
    EntryRun entries;
    std::unique_ptr<DirItem> item;
};

FatStatus PrepareItem(CFatFile& directory, std::unique_ptr<DirItem> item, PreparedRun* run) {
    if (!item || Failed(ReserveItem(*directory.listing, *item))) {
        return STATUS_NO_MEMORY;
    }
    run->item = std::move(item);
    return STATUS_SUCCESS;
}

// Makes the run of a new name. Only memory can be missing.
FatStatus PrepareRun(CFatFile& directory, const char16_t* name, const EntryContent& content,
                     PreparedRun* run) {
    const ParsedName parsed = ChooseNames(directory, name, content.attributes);
    const std::uint32_t longEntries =
        (parsed.longLength + UnitsPerLongEntry - 1) / UnitsPerLongEntry;
    const ShortEntry entry = MakeShortEntry(parsed, content);
    run->entries = MakeRun(parsed, longEntries, entry);
    const ShortKeyString shortKey = MakeShortKeyString(entry.DIR_Name);
    return PrepareItem(directory,
                       NewDirItem(entry, longEntries, longEntries,
                                  longEntries != 0 ? parsed.name : shortKey.units),
                       run);
}

// Finds slots for a prepared run and writes it there.
FatStatus PlaceRun(CFatFile& directory, PreparedRun& run, DirItem** placed) {
    const std::uint32_t count = RunLength(*run.item);
    std::uint32_t firstSlot = 0;
    FatStatus status = AllocateDirSlots(directory, count, &firstSlot);
    if (Failed(status)) {
        return status;
    }
    status = WriteNewRun(directory, firstSlot, count, run.entries.slots);
    if (Failed(status)) {
        FreeDirSlots(directory, firstSlot, count);
        return status;
    }
    *placed = run.item.get();
    run.item->slot = firstSlot + run.item->longEntryCount;
    // Its places in the indexes are there.
    (void)AddDirItem(*directory.listing, std::move(run.item));
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus CreateDirEntries(CFatFile& directory, const char16_t* name, const EntryContent& content,
                           DirItem** item) {
    PreparedRun run;
    const FatStatus status = PrepareRun(directory, name, content, &run);
    return Failed(status) ? status : PlaceRun(directory, run, item);
}

FatStatus DeleteDirEntries(CFatFile& directory, std::uint32_t firstSlot, std::uint32_t count,
                           SavedFirstBytes* saved) {
    EntryRun run;
    FatStatus status = ReadDirSlots(directory, firstSlot, count, run.slots);
    if (Failed(status)) {
        return status;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        saved->bytes[i] = run.FirstByte(i);
        run.FirstByte(i) = DeletedMark;
    }
    status = WriteDirSlots(directory, firstSlot, count, run.slots);
    if (Succeeded(status)) {
        FreeDirSlots(directory, firstSlot, count);
    }
    return status;
}

void UndoEntry(CFatFile& directory, DirItem& item) {
    if (Failed(RemoveEntry(directory, item))) {
        directory.volume->isUncertain = true;
    }
}

FatStatus RemoveEntry(CFatFile& directory, DirItem& item) {
    SavedFirstBytes unused;
    const FatStatus status = DeleteDirEntries(directory, FirstSlot(item), RunLength(item), &unused);
    if (Succeeded(status)) {
        RemoveDirItem(*directory.listing, item);
    }
    return status;
}

namespace {

// Brings a deleted run back to life on the medium. Its slots are in the cache and nothing else came
// to stand there, so this is not expected to fail.
void RestoreRun(CFatFile& directory, const DirItem& item, const SavedFirstBytes& saved) {
    const std::uint32_t first = FirstSlot(item);
    const std::uint32_t count = RunLength(item);
    EntryRun run;
    const FatStatus status = ReadDirSlots(directory, first, count, run.slots);
    for (std::uint32_t i = 0; i < count; ++i) {
        run.FirstByte(i) = saved.bytes[i];
    }
    if (Failed(status) || Failed(WriteDirSlots(directory, first, count, run.slots))) {
        directory.volume->isUncertain = true;
    }
    SetBits(directory.listing->slots, first, count);
}

// Puts the prepared run in the place of an old one whose item is out of the listing. Compacting may
// move others into the old slots, but then the new run is written without fail.
FatStatus ReplaceRun(CFatFile& directory, const DirItem& old, PreparedRun& run, DirItem** placed) {
    SavedFirstBytes saved;
    FatStatus status = DeleteDirEntries(directory, FirstSlot(old), RunLength(old), &saved);
    if (Failed(status)) {
        return status;
    }
    status = PlaceRun(directory, run, placed);
    if (Failed(status)) {
        RestoreRun(directory, old, saved);
    }
    return status;
}

}  // namespace

FatStatus RenameDirEntry(CFatFile& directory, CFatFile& object, DirItem& item,
                         const char16_t* newName) {
    DirListing& listing = *directory.listing;
    // The old name is free for the new one's alias, so it leaves the listing first.
    std::unique_ptr<DirItem> old = RemoveDirItem(listing, item);
    const EntryContent content{object.entry.DIR_Attr, FileSize(object.entry), object.firstCluster};
    PreparedRun run;
    DirItem* renamed = nullptr;
    FatStatus status = PrepareRun(directory, newName, content, &run);
    if (Succeeded(status)) {
        status = ReplaceRun(directory, *old, run, &renamed);
    }
    if (Failed(status)) {
        // It was there before, so there is room for it.
        (void)AddDirItem(listing, std::move(old));
        return status;
    }
    CopyEntryAndName(object, *renamed);
    return STATUS_SUCCESS;
}

FatStatus DeleteFileEntry(CFatFile& directory, CFatFile& object, DirItem& item) {
    const FatStatus status = RemoveEntry(directory, item);
    if (Failed(status)) {
        return status;
    }
    FatVolume& volume = *object.volume;
    // What is cached belongs to nobody any more, and must not reach clusters that others may get.
    TruncateFileBlocks(object, 0);
    std::uint32_t tried = 0;
    const bool isFreed = Succeeded(FreeChain(volume, object.runs, &tried));
    volume.hasUntoldFailure = !isFreed || volume.hasUntoldFailure;
    // Clusters whose entries stay are lost, and not given to anybody.
    if (isFreed || ForceFree(volume, object.runs)) {
        ReleaseRuns(volume.clusterBitmap, object.runs);
    }
    CutTail(object.runs, TotalClusters(object.runs));
    object.allocatedSize = object.linkedSize = 0;
    object.firstCluster = 0;
    SetFirstCluster(object.entry, 0);
    SetFileSize(object.entry, 0);
    return STATUS_SUCCESS;
}

FatStatus CopyDirEntry(CFatFile& source, const DirItem& item, CFatFile& destination,
                       DirItem** copy) {
    PreparedRun run;
    FatStatus status = PrepareItem(
        destination,
        NewDirItem(item.entry, item.longEntryCount, item.longEntryCount, item.name.get()), &run);
    if (Succeeded(status)) {
        status = ReadDirSlots(source, FirstSlot(item), RunLength(item), run.entries.slots);
    }
    return Failed(status) ? status : PlaceRun(destination, run, copy);
}

}  // namespace fatvol
