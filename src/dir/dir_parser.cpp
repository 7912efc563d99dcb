#include "dir/dir_parser.h"

#include <algorithm>
#include <cstring>

#include "data/fat_file.h"
#include "data/file_data.h"
#include "dir/dir_listing.h"
#include "platform/allocation.h"

namespace fatvol {
namespace {

bool IsLongEntry(const ShortEntry& entry) {
    return entry.DIR_Attr == AttrLongName;
}

// The entry under the parser, whose kind its attribute byte and its first byte tell.
struct Parser {
    DirListing& listing;
    CFatFile& directory;
    std::uint32_t slot = 0;  // of `entry`
    ShortEntry entry{};

    std::uint8_t FirstByte() const { return entry.DIR_Name[0]; }
    LongEntry AsLongEntry() const {
        LongEntry result;
        std::memcpy(&result, &entry, sizeof result);
        return result;
    }
};

// A long name being put together, from its end to its start.
struct LongName {
    std::uint32_t entryCount = 0;
    std::uint8_t checksum = 0;
    std::uint32_t startSlot = 0;                // of its first entry
    char16_t units[MaxLongNameUnits + 1] = {};  // zero-terminated
};

// Reads the entry of the parser's slot.
FatStatus ReadEntry(Parser& parser) {
    const std::uint64_t position = std::uint64_t{parser.slot} * DirEntrySize;
    const std::uint64_t size = DataSize(parser.directory);
    if (parser.slot >= parser.listing.slots.bitCount || position >= size) {
        return STATUS_END_OF_FILE;
    }
    const auto length =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(DirEntrySize, size - position));
    std::uint32_t read = 0;
    const FatStatus status =
        ReadFileData(parser.directory, position, length, &parser.entry, &read, size);
    // A host may fail a read with this very status; a listing cut short by that is not complete.
    return status == STATUS_END_OF_FILE ? STATUS_FILE_CORRUPT_ERROR : status;
}

FatStatus ReadNextEntry(Parser& parser) {
    ++parser.slot;
    return ReadEntry(parser);
}

// Reads the next entry of a run; `*atEndMark` tells that the directory ends there.
FatStatus ReadRunEntry(Parser& parser, bool* atEndMark) {
    const FatStatus status = ReadNextEntry(parser);
    *atEndMark = Succeeded(status) && parser.FirstByte() == EndMark;
    return status;
}

void MarkUsed(const Parser& parser) {
    SetBits(parser.listing.slots, parser.slot, 1);
}

FatStatus AddItem(const Parser& parser, std::uint32_t longEntryCount, const char16_t* keyString) {
    auto item = NewDirItem(parser.entry, parser.slot, longEntryCount, keyString);
    return item ? AddDirItem(parser.listing, std::move(item)) : STATUS_NO_MEMORY;
}

FatStatus AddShortItem(const Parser& parser) {
    return AddItem(parser, 0, MakeShortKeyString(parser.entry.DIR_Name).units);
}

// Free slots between the entries of a run belong to its item: a new entry in one would cut the run
// apart. A run so full of holes that no operation could take it as a whole keeps its entries only.
FatStatus AddLongItem(const Parser& parser, const LongName& name) {
    const std::uint32_t span = parser.slot - name.startSlot;
    const std::uint32_t count = span < MaxRunSlots ? span : name.entryCount;
    SetBits(parser.listing.slots, parser.slot - count, count + 1);
    return AddItem(parser, count, name.units);
}

// What became of a run of long-name entries.
enum class RunEnd {
    Item,       // the short entry was met: the entry is done with
    OtherEntry  // the run broke off at an entry that must be looked at for itself
};

// Starts a long name with the parser's entry. False when the entry cannot start one.
bool StartLongName(const Parser& parser, LongName& name) {
    const LongEntry entry = parser.AsLongEntry();
    name.entryCount = entry.LDIR_Ord & LongSequenceMask;
    if ((entry.LDIR_Ord & LastLongEntry) == 0 || name.entryCount == 0 ||
        name.entryCount > MaxLongEntries) {
        return false;
    }
    name.checksum = entry.LDIR_Chksum;
    name.startSlot = parser.slot;
    const std::uint32_t before = (name.entryCount - 1) * UnitsPerLongEntry;
    return before + CopyLongNameUnits(entry, name.units + before) != 0;
}

// Adds the entries with the sequence numbers below the first one's. An end of the directory inside
// the run ends the parse.
FatStatus CollectLongName(Parser& parser, LongName& name, RunEnd* end, bool* atEndMark) {
    for (std::uint32_t sequence = name.entryCount - 1; sequence > 0;) {
        const FatStatus status = ReadRunEntry(parser, atEndMark);
        if (Failed(status) || *atEndMark) {
            return status;
        }
        if (parser.FirstByte() == DeletedMark) {
            continue;
        }
        MarkUsed(parser);
        const LongEntry entry = parser.AsLongEntry();
        if (!IsLongEntry(parser.entry) || (entry.LDIR_Ord & LongSequenceMask) != sequence ||
            entry.LDIR_Chksum != name.checksum) {
            *end = RunEnd::OtherEntry;
            return STATUS_SUCCESS;
        }
        --sequence;
        CopyLongNameUnits(entry, name.units + std::size_t{sequence} * UnitsPerLongEntry);
    }
    *end = RunEnd::Item;
    return STATUS_SUCCESS;
}

// Reads the short entry that the collected name belongs to and makes the item.
FatStatus FinishLongName(Parser& parser, const LongName& name, RunEnd* end, bool* atEndMark) {
    const FatStatus status = ReadRunEntry(parser, atEndMark);
    if (Failed(status) || *atEndMark) {
        return status;
    }
    if (parser.FirstByte() == DeletedMark) {
        return STATUS_SUCCESS;
    }
    MarkUsed(parser);
    if (IsLongEntry(parser.entry)) {
        *end = RunEnd::OtherEntry;
        return STATUS_SUCCESS;
    }
    const bool belongs = ShortNameChecksum(parser.entry.DIR_Name) == name.checksum;
    return belongs && name.units[0] != 0 ? AddLongItem(parser, name) : AddShortItem(parser);
}

// Handles the parser's long-name entry and those that follow it.
FatStatus ParseLongName(Parser& parser, RunEnd* end, bool* atEndMark) {
    *end = RunEnd::Item;
    LongName name;
    if (!StartLongName(parser, name)) {
        return STATUS_SUCCESS;
    }
    const FatStatus status = CollectLongName(parser, name, end, atEndMark);
    if (Failed(status) || *atEndMark || *end == RunEnd::OtherEntry) {
        return status;
    }
    return FinishLongName(parser, name, end, atEndMark);
}

// Handles the parser's used entry and the run that it starts.
FatStatus ParseRun(Parser& parser, bool* atEndMark) {
    RunEnd end = RunEnd::OtherEntry;
    while (end == RunEnd::OtherEntry && !*atEndMark) {
        if (!IsLongEntry(parser.entry)) {
            if ((parser.entry.DIR_Attr & AttrVolumeLabel) == 0) {
                return AddShortItem(parser);
            }
            std::copy_n(parser.entry.DIR_Name, ShortNameSize, parser.listing.volumeLabel);
            return STATUS_SUCCESS;
        }
        const FatStatus status = ParseLongName(parser, &end, atEndMark);
        if (Failed(status)) {
            return status;
        }
    }
    return STATUS_SUCCESS;
}

}  // namespace

FatStatus ParseDirectory(DirListing& listing, CFatFile& directory) {
    const auto slotCount = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(DataSize(directory) / DirEntrySize, MaxDirSlots));
    FatStatus status = ResizeDirListing(listing, slotCount);
    if (Failed(status)) {
        return status;
    }
    ClearBits(listing.slots, 0, slotCount);
    Parser parser{listing, directory};
    bool atEndMark = false;
    while (Succeeded(status) && !atEndMark) {
        status = ReadEntry(parser);
        if (Failed(status)) {
            break;
        }
        if (parser.FirstByte() == EndMark) {
            atEndMark = true;
        } else if (parser.FirstByte() != DeletedMark) {
            MarkUsed(parser);
            status = ParseRun(parser, &atEndMark);
        }
        if (Succeeded(status) && !atEndMark) {
            ++parser.slot;
        }
    }
    listing.endSlot = std::min(parser.slot, slotCount);
    return status;
}

FatStatus LoadDirListing(CFatFile& directory) {
    directory.listing = TryNew<DirListing>();
    if (!directory.listing) {
        return STATUS_NO_MEMORY;
    }
    const FatStatus status = ParseDirectory(*directory.listing, directory);
    return status == STATUS_END_OF_FILE ? STATUS_SUCCESS : status;
}

}  // namespace fatvol
