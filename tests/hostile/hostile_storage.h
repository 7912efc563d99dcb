// A storage whose host may break every promise.
#pragma once

#include "support/memory_storage.h"

namespace fatvol::test {

// The volume says that it has as many bytes as the disk; from `endBytes` on every access fails.
struct HostileDisk : MemoryDisk {
    HostileDisk(uint64_t claimedBytes, uint64_t end, uint8_t fill)
        : MemoryDisk(claimedBytes, fill), endBytes(end) {}

    const uint64_t endBytes;
    uint64_t storageCalls = 0, storagesMade = 0;
    // How the host breaks its word, none while 0:
    uint32_t spoiltCallback = 0;  // 1 to 7: PrepareDevice leaves this one null; 8: it throws
    uint32_t mpbLie = 0;          // byte of the record; in the next 8 bits what is added to it
    bool throwsInTransfers = false;
    bool transfersHalf = false;  // and says that it was all
    bool hasLied = false;        // at any time
};

class HostileStorage : public MemoryStorage {
public:
    explicit HostileStorage(HostileDisk& disk) : MemoryStorage(disk) { ++disk.storagesMade; }
    void PrepareDevice() override;

private:
    template <CallKind kind>
    static int HostileTransfer(CVolumeStorage* storage, unsigned char* buffer, long long position,
                               unsigned int count);
    static void LyingGetMpb(void* bootSector, void* mpb);
};

}  // namespace fatvol::test
