// The library's side of the host's storage object: every call of the host's code goes through
// here. An exception that a host callback lets out becomes STATUS_DRIVER_INTERNAL_ERROR, so that
// none travels through the library; a callback that the host has taken back fails with it too.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "storage/boot_sector.h"
#include "storage/fat_status.h"

class CFatStorage;

namespace fatvol {

// The time in which a storage is being mounted, or host code of it runs. Called from host code
// every exported function fails: the library is in the middle of a change. Storages may be deleted
// there all the same, within a call of another one, so these times nest; each is an object on the
// stack.
class StorageCall {
public:
    explicit StorageCall(const CFatStorage* used)
        : storage(used), outer(std::exchange(innermost, this)) {}
    ~StorageCall() { innermost = outer; }
    StorageCall(const StorageCall&) = delete;
    StorageCall& operator=(const StorageCall&) = delete;

    static bool IsAnyUnderWay() { return innermost != nullptr; }
    // Whether one of this storage is under way, be it the innermost or not.
    static bool IsUnderWay(const CFatStorage* storage);

private:
    static inline const StorageCall* innermost = nullptr;
    const CFatStorage* const storage;
    const StorageCall* const outer;
};

// Owns a host's storage object, whose destructor is host code too.
struct DeleteStorage {
    void operator()(CFatStorage* storage) const;
};
using StorageOwner = std::unique_ptr<CFatStorage, DeleteStorage>;

// The transfers: positions and counts in bytes, or in sectors for the last two. A negative result
// of the callback is returned unchanged. The aligned forms move whole clusters.
FatStatus ReadBytes(CFatStorage& storage, void* buffer, std::uint64_t position,
                    std::uint32_t count);
FatStatus WriteBytes(CFatStorage& storage, const void* buffer, std::uint64_t position,
                     std::uint32_t count);
FatStatus ReadBytesAligned(CFatStorage& storage, void* buffer, std::uint64_t position,
                           std::uint32_t count);
FatStatus WriteBytesAligned(CFatStorage& storage, const void* buffer, std::uint64_t position,
                            std::uint32_t count);
FatStatus ReadSectors(CFatStorage& storage, void* buffer, std::uint64_t sector,
                      std::uint32_t count);
FatStatus WriteSectors(CFatStorage& storage, const void* buffer, std::uint64_t sector,
                       std::uint32_t count);

// Opens the device and checks the boot sector; see CVolumeStorage::Open.
FatStatus OpenStorage(CFatStorage& storage, void* parameter);

// Frees the boot-sector buffer and closes the device. The result of CloseDevice has no taker: the
// storage is given up either way.
void CloseStorage(CFatStorage& storage);

// Fills the media parameter record through the host's GetMpbProc.
FatStatus ReadMpb(CFatStorage& storage, Mpb* mpb);

}  // namespace fatvol
