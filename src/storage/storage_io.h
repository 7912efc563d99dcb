// The library's side of the host's storage object: every call of the host's code goes through
// here. An exception that a host callback lets out becomes STATUS_DRIVER_INTERNAL_ERROR, so that
// none travels through the library.
#pragma once

#include <cstdint>
#include <memory>

#include "storage/boot_sector.h"
#include "storage/fat_status.h"

class CFatStorage;

namespace fatvol {

// The storage whose host code is running, or null. Called from there every exported function fails:
// the library is in the middle of a change.
extern const CFatStorage* StorageInCall;

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
