// The exported functions that enumerate directories.
#include "api/fatvol.h"
#include "api/file_info.h"
#include "api/library_state.h"
#include "api/path_argument.h"
#include "ops/path_lookup.h"
#include "platform/allocation.h"
#include "volume/fat_volume.h"

using namespace fatvol;

namespace {

// Gives the entry at the cursor and moves the cursor past it. After the last one the cursor goes
// back to the start.
bool NextEntry(const DirListing& listing, DirCursor& cursor, FatFileInfo* info) {
    const DirItem* item = NextDirItem(listing, cursor.nextSlot);
    cursor.nextSlot = item ? item->slot + 1 : 0;
    if (item) {
        FillFromItem(*item, info);
    }
    return item != nullptr;
}

void CloseRecord(std::unique_ptr<FindRecord> record) {
    Unlink(record->cursor);
    LetGo(std::move(record->directory));
}

// Starts an enumeration of a directory that `open` gives a reference of.
template <class Open>
int FindFirst(FatFileInfo* info, Open open) {
    FatVolume* volume = CurrentVolume();
    if (!volume || !info || Library->finds.IsFull()) {
        return NoHandle;
    }
    const int handle = Library->finds.FindFree();
    auto record = TryNew<FindRecord>();
    if (!record || Failed(open(*volume, &record->directory))) {
        return NoHandle;
    }
    DirListing* listing = record->directory->listing.get();
    if (!listing || !NextEntry(*listing, record->cursor, info)) {
        CloseRecord(std::move(record));
        return NoHandle;
    }
    LinkLast(listing->cursors, static_cast<ListNode<DirCursorTag>&>(record->cursor));
    Library->finds.Occupy(handle, std::move(record));
    return handle;
}

}  // namespace

int Fat_FindFirstFile(const char16_t* path, FatFileInfo* info) noexcept {
    return FindFirst(info, [path](FatVolume& volume, FileReference* directory) {
        return NormalizePath(path, PathBuffer) ? OpenByPath(volume, PathBuffer, directory)
                                               : STATUS_INVALID_PARAMETER;
    });
}

int Fat_FindFirstRootFile(FatFileInfo* info) noexcept {
    return FindFirst(info, [](FatVolume& volume, FileReference* directory) {
        *directory = FileReference::To(*volume.rootDirectory);
        return STATUS_SUCCESS;
    });
}

bool Fat_FindNextFile(int handle, FatFileInfo* info) noexcept {
    FindRecord* record = FindRecordOf(handle);
    return record && info && NextEntry(*record->directory->listing, record->cursor, info);
}

bool Fat_CloseFindHandle(int handle) noexcept {
    if (!CanCloseFind(handle)) {
        return false;
    }
    CloseRecord(Library->finds.Vacate(handle));
    return true;
}
