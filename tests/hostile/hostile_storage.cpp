#include "hostile_storage.h"

#include <algorithm>
#include <stdexcept>

#include "allocation_count.h"

namespace fatvol::test {

namespace {

uint32_t currentLie = 0;

}  // namespace

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
    const UncountedAllocations pause;
    if (disk.transfersHalf && !IsWrite(kind)) {
        std::fill_n(buffer + count / 2 * unit, (count - count / 2) * unit, uint8_t{0xDB});
    }
    return Transfer<kind>(storage, buffer, position, disk.transfersHalf ? count / 2 : count);
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
