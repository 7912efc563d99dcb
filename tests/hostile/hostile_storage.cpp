#include "hostile_storage.h"

#include <new>
#include <stdexcept>

namespace {

uint64_t allocatedBytes = 0;
bool isCounting = true;  // not while the storage's own code runs
uint32_t currentLie = 0;

size_t Count(size_t size) {
    allocatedBytes += isCounting ? size : 0;
    return size;
}

}  // namespace

// The linker leads the allocations of the library, and of the tests, here; not calloc, which the
// library takes its cache of 64 MiB from, once.
// clang-format off
#define COUNTED(name, parameters, size, ...)     \
    extern "C" void* __real_##name parameters;   \
    extern "C" void* __wrap_##name parameters {  \
        Count(size);                             \
        return __real_##name(__VA_ARGS__);       \
    }
COUNTED(malloc, (size_t size), size, size)
COUNTED(realloc, (void* memory, size_t size), size, memory, size)
COUNTED(_ZnwmRKSt9nothrow_t, (size_t size, const std::nothrow_t& tag), size, size, tag)
COUNTED(_ZnamRKSt9nothrow_t, (size_t size, const std::nothrow_t& tag), size, size, tag)
// clang-format on

namespace fatvol::test {

uint64_t AllocatedBytes() {
    return allocatedBytes;
}

void HostileStorage::LyingGetMpb(void* bootSector, void* mpb) {
    _GetMpb(bootSector, mpb);
    auto& byte = static_cast<uint8_t*>(mpb)[currentLie % 28];
    byte = static_cast<uint8_t>(byte + (currentLie >> 8));
}

template <CallKind kind>
int HostileStorage::HostileTransfer(CVolumeStorage* storage, unsigned char* buffer,
                                    long long position, unsigned int count) {
    auto& disk = static_cast<HostileDisk&>(static_cast<HostileStorage*>(storage)->Disk());
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
    const auto& disk = static_cast<HostileDisk&>(Disk());
    currentLie = disk.mpbLie;
    GetMpbProc = disk.mpbLie != 0 ? &LyingGetMpb : &_GetMpb;
    StorageTransferProc* const procs[] = {&ReadBytesProc,        &WriteBytesProc,
                                          &ReadBytesAlignedProc, &WriteBytesAlignedProc,
                                          &ReadSectorsProc,      &WriteSectorsProc};
    const StorageTransferProc functions[] = {
        HostileTransfer<CallKind::ReadBytes>,   HostileTransfer<CallKind::WriteBytes>,
        HostileTransfer<CallKind::ReadAligned>, HostileTransfer<CallKind::WriteAligned>,
        HostileTransfer<CallKind::ReadSectors>, HostileTransfer<CallKind::WriteSectors>};
    for (uint32_t i = 0; i < 6; ++i) {
        *procs[i] = disk.spoiltCallback == i + 1 ? nullptr : functions[i];
    }
    if (disk.spoiltCallback == 7) {
        GetMpbProc = nullptr;
    } else if (disk.spoiltCallback == 8) {
        throw std::runtime_error("host");
    }
}

}  // namespace fatvol::test
