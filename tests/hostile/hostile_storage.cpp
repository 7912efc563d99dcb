#include "hostile_storage.h"

#include <cstdlib>
#include <new>
#include <stdexcept>

namespace {

uint64_t allocatedBytes = 0;
bool isCounting = true;

void Count(size_t size) {
    allocatedBytes += isCounting ? size : 0;
}

}  // namespace

// The linker leads the allocations of the library, and of the tests, here.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void* __real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __real__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);

void* __wrap_malloc(size_t size) {
    Count(size);
    return __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
    Count(count * size);
    return __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, size_t size) {
    Count(size);
    return __real_realloc(memory, size);
}
void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
    Count(size);
    return __real__ZnwmRKSt9nothrow_t(size, tag);
}
void* __wrap__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
    Count(size);
    return __real__ZnamRKSt9nothrow_t(size, tag);
}
}

namespace fatvol::test {
namespace {

HostileDisk& DiskOf(CVolumeStorage& storage) {
    return static_cast<HostileDisk&>(static_cast<HostileStorage&>(storage).Disk());
}

// A host that found no other way to hand its disk to the callback than next to it.
uint32_t currentLie = 0;

void LyingGetMpb(void* bootSector, void* mpb);

struct GetMpbAccess : CFatStorage {
    using CFatStorage::_GetMpb;
};

void LyingGetMpb(void* bootSector, void* mpb) {
    GetMpbAccess::_GetMpb(bootSector, mpb);
    auto* bytes = static_cast<uint8_t*>(mpb);
    bytes[currentLie % 28] = static_cast<uint8_t>(bytes[currentLie % 28] + (currentLie >> 8));
}

}  // namespace

uint64_t AllocatedBytes() {
    return allocatedBytes;
}

template <CallKind kind>
int HostileStorage::HostileTransfer(CVolumeStorage* storage, unsigned char* buffer,
                                    long long position, unsigned int count) {
    HostileDisk& disk = DiskOf(*storage);
    ++disk.storageCalls;
    if (disk.throwsInTransfers) {
        throw std::runtime_error("host");
    }
    const uint64_t unit = kind >= CallKind::ReadSectors ? storage->BytesPerSector : 1;
    const uint64_t end = (static_cast<uint64_t>(position) + count) * unit;
    if (end > disk.endBytes && end <= disk.sizeBytes) {
        return -9;
    }
    isCounting = false;
    const int status =
        Transfer<kind>(storage, buffer, position, disk.transfersHalf ? count / 2 : count);
    isCounting = true;
    return status;
}

void HostileStorage::PrepareDevice() {
    HostileDisk& disk = DiskOf(*this);
    MemoryStorage::PrepareDevice();
    if (disk.mpbLie != 0) {
        currentLie = disk.mpbLie;
        GetMpbProc = &LyingGetMpb;
    }
    ReadBytesProc = &HostileTransfer<CallKind::ReadBytes>;
    WriteBytesProc = &HostileTransfer<CallKind::WriteBytes>;
    ReadBytesAlignedProc = &HostileTransfer<CallKind::ReadAligned>;
    WriteBytesAlignedProc = &HostileTransfer<CallKind::WriteAligned>;
    ReadSectorsProc = &HostileTransfer<CallKind::ReadSectors>;
    WriteSectorsProc = &HostileTransfer<CallKind::WriteSectors>;
    StorageTransferProc* const procs[] = {&ReadBytesProc,        &WriteBytesProc,
                                          &ReadBytesAlignedProc, &WriteBytesAlignedProc,
                                          &ReadSectorsProc,      &WriteSectorsProc};
    if (disk.spoiltCallback == 8) {
        throw std::runtime_error("host");
    }
    if (disk.spoiltCallback == 7) {
        GetMpbProc = nullptr;
    } else if (disk.spoiltCallback != 0) {
        *procs[disk.spoiltCallback - 1] = nullptr;
    }
}

}  // namespace fatvol::test
