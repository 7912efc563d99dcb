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

// Splits a name and makes sure that no other entry has its short form.
ParsedName ChooseNames(const CFatFile& directory, const char16_t* name) {
    ParsedName parsed = ParseEntryName(name);
    if (!parsed.HasShortForm() || IsShortNameTaken(directory, parsed.shortForm)) {
        GenerateShortName(directory, parsed);
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

// Puts the new run into reserved slots, or gives them back.
FatStatus PlaceNewRun(CFatFile& directory, std::uint32_t firstSlot, const EntryRun& run,
                      std::unique_ptr<DirItem> item, DirItem** placed) {
    DirItem* const added = item.get();
    const std::uint32_t count = added ? RunLength(*added) : 0;
    FatStatus status = added ? AddDirItem(*directory.listing, std::move(item)) : STATUS_NO_MEMORY;
    if (Failed(status)) {
        return status;
    }
    status = WriteNewRun(directory, firstSlot, count, run.slots);
    if (Failed(status)) {
        RemoveDirItem(*directory.listing, *added);
        return status;
    }
    *placed = added;
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus CreateDirEntries(CFatFile& directory, const char16_t* name, const EntryContent& content,
                           DirItem** item) {
    const ParsedName parsed = ChooseNames(directory, name);
    const std::uint32_t longEntries =
        (parsed.longLength + UnitsPerLongEntry - 1) / UnitsPerLongEntry;
    const ShortEntry entry = MakeShortEntry(parsed, content);
    const EntryRun run = MakeRun(parsed, longEntries, entry);
    std::uint32_t firstSlot = 0;
    FatStatus status = AllocateDirSlots(directory, longEntries + 1, &firstSlot);
    if (Failed(status)) {
        return status;
    }
    const ShortKeyString shortKey = MakeShortKeyString(entry.DIR_Name);
    status = PlaceNewRun(directory, firstSlot, run,
                         NewDirItem(entry, firstSlot + longEntries, longEntries,
                                    longEntries != 0 ? parsed.name : shortKey.units),
                         item);
    if (Failed(status)) {
        FreeDirSlots(directory, firstSlot, longEntries + 1);
    }
    return status;
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

FatStatus RemoveEntry(CFatFile& directory, DirItem& item) {
    SavedFirstBytes unused;
    const FatStatus status = DeleteDirEntries(directory, FirstSlot(item), RunLength(item), &unused);
    if (Succeeded(status)) {
        RemoveDirItem(*directory.listing, item);
    }
    return status;
}

namespace {

// Brings a deleted run back to life. Its slots are in the cache, so this does not fail; if it did,
// the entry would be lost on the medium and the listing would still show it.
void RestoreRun(CFatFile& directory, std::unique_ptr<DirItem> item, const SavedFirstBytes& saved) {
    const std::uint32_t first = FirstSlot(*item);
    const std::uint32_t count = RunLength(*item);
    (void)AddDirItem(*directory.listing, std::move(item));
    EntryRun run;
    if (Succeeded(ReadDirSlots(directory, first, count, run.slots))) {
        for (std::uint32_t i = 0; i < count; ++i) {
            run.FirstByte(i) = saved.bytes[i];
        }
        (void)WriteDirSlots(directory, first, count, run.slots);
    }
    SetBits(directory.listing->slots, first, count);
}

}  // namespace

FatStatus RenameDirEntry(CFatFile& directory, CFatFile& object, DirItem& item,
                         const char16_t* newName) {
    SavedFirstBytes saved;
    FatStatus status = DeleteDirEntries(directory, FirstSlot(item), RunLength(item), &saved);
    if (Failed(status)) {
        return status;
    }
    std::unique_ptr<DirItem> old = RemoveDirItem(*directory.listing, item);
    const EntryContent content{object.entry.DIR_Attr, FileSize(object.entry), object.firstCluster};
    DirItem* renamed = nullptr;
    status = CreateDirEntries(directory, newName, content, &renamed);
    if (Failed(status)) {
        RestoreRun(directory, std::move(old), saved);
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
    ReleaseRuns(volume.clusterBitmap, object.runs);
    // The entry is gone, so a FAT entry that stays is a lost cluster and nothing worse.
    (void)RestoreFree(volume, object.runs);
    CutTail(object.runs, TotalClusters(object.runs));
    object.allocatedSize = 0;
    object.firstCluster = 0;
    SetFirstCluster(object.entry, 0);
    SetFileSize(object.entry, 0);
    return STATUS_SUCCESS;
}

FatStatus MoveDirEntry(CFatFile& source, DirItem& item, CFatFile& destination) {
    const std::uint32_t count = RunLength(item);
    std::uint32_t target = 0;
    FatStatus status = AllocateDirSlots(destination, count, &target);
    if (Failed(status)) {
        return status;
    }
    // The item is added before anything is written, since that can fail.
    const std::uint32_t origin = FirstSlot(item);
    EntryRun run;
    DirItem* copy = nullptr;
    status = ReadDirSlots(source, origin, count, run.slots);
    if (Succeeded(status)) {
        status = PlaceNewRun(destination, target, run,
                             NewDirItem(item.entry, target + item.longEntryCount,
                                        item.longEntryCount, item.name.get()),
                             &copy);
    }
    if (Failed(status)) {
        FreeDirSlots(destination, target, count);
        return status;
    }
    status = RemoveEntry(source, item);
    if (Failed(status)) {
        // Its slots were written a moment ago and are cached, so taking the copy back succeeds.
        (void)RemoveEntry(destination, *copy);
    }
    return status;
}

}  // namespace fatvol
