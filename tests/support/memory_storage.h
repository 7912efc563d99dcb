// The storage object of every test: a thin host class that passes all calls to a MemoryDisk.
#pragma once

#include "api/fatvol.h"
#include "memory_disk.h"

namespace fatvol::test {

// Allocate with new and hand to Fat_Mount, which deletes it; `disk` stays with the test.
class MemoryStorage : public CFatStorage {
public:
    explicit MemoryStorage(MemoryDisk& disk) { HostContext = reinterpret_cast<uintptr_t>(&disk); }
    ~MemoryStorage() override { ++Disk().counters.destroyed; }

    MemoryDisk& Disk() const { return *reinterpret_cast<MemoryDisk*>(HostContext); }

    int OpenDevice(void* parameter) override {
        ++Disk().counters.opens;
        Disk().openParameter = parameter;
        isOpen = Disk().openResult >= 0;
        return Disk().openResult;
    }

    bool CloseDevice() override {
        ++Disk().counters.closes;
        isOpen = false;
        return true;
    }

    void PrepareDevice() override {
        GetMpbProc = &_GetMpb;
        ReadBytesProc = &Transfer<CallKind::ReadBytes>;
        WriteBytesProc = &Transfer<CallKind::WriteBytes>;
        ReadBytesAlignedProc = &Transfer<CallKind::ReadAligned>;
        WriteBytesAlignedProc = &Transfer<CallKind::WriteAligned>;
        ReadSectorsProc = &Transfer<CallKind::ReadSectors>;
        WriteSectorsProc = &Transfer<CallKind::WriteSectors>;
    }

protected:
    template <CallKind kind>
    static int Transfer(CVolumeStorage* storage, unsigned char* buffer, long long position,
                        unsigned int count) {
        const auto& self = *static_cast<MemoryStorage*>(storage);
        self.Disk().counters.unopenedAccesses += !self.isOpen;
        return self.Disk().Transfer({kind, position, count}, buffer, self.BytesPerSector);
    }

private:
    bool isOpen = false;
};

}  // namespace fatvol::test
