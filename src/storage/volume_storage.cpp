// CVolumeStorage: opening a volume's storage and the way to its callbacks.
#include <cstdlib>
#include <memory>

#include "api/fatvol.h"
#include "storage/fat_status.h"
#include "storage/log2_floor.h"

using fatvol::FatStatus;

const int CVolumeStorage::DEFAULT_DBR_SIZE;
const unsigned short CVolumeStorage::MBR_DBR_MAGIC_TAG;
const int CVolumeStorage::SECTOR_MAXSIZE;

// The host fills the fields, some of them before this constructor's caller regains control, so
// none is touched here.
CVolumeStorage::CVolumeStorage() {}
CVolumeStorage::CVolumeStorage(const CVolumeStorage&) = default;
CVolumeStorage::CVolumeStorage(CVolumeStorage&&) = default;
CVolumeStorage& CVolumeStorage::operator=(const CVolumeStorage&) = default;
CVolumeStorage& CVolumeStorage::operator=(CVolumeStorage&&) = default;

// DbrBuffer may be shared with a copy of this object, so only Close frees it.
CVolumeStorage::~CVolumeStorage() = default;

namespace {

struct FreeBuffer {
    void operator()(unsigned char* buffer) const { std::free(buffer); }
};

bool AreCallbacksSet(const CVolumeStorage& storage) {
    return storage.GetMpbProc && storage.ReadBytesProc && storage.WriteBytesProc &&
           storage.ReadBytesAlignedProc && storage.WriteBytesAlignedProc &&
           storage.ReadSectorsProc && storage.WriteSectorsProc;
}

}  // namespace

int CVolumeStorage::Open(void* parameter) {
    CaclSectorShift(SECTOR_MAXSIZE);
    const int opened = OpenDevice(parameter);
    if (opened < 0) {
        return opened;
    }
    std::unique_ptr<unsigned char, FreeBuffer> buffer(
        static_cast<unsigned char*>(std::malloc(SECTOR_MAXSIZE)));
    if (!buffer) {
        return static_cast<int>(FatStatus::STATUS_NO_MEMORY);
    }
    DbrBuffer = buffer.get();
    PrepareDevice();
    if (!AreCallbacksSet(*this)) {
        return static_cast<int>(FatStatus::STATUS_UNRECOGNIZED_VOLUME);
    }
    const int read = ReadDbr(DbrBuffer);
    if (read < 0) {
        return read;
    }
    if (!IsDbrOk(DbrBuffer)) {
        return static_cast<int>(FatStatus::STATUS_UNRECOGNIZED_VOLUME);
    }
    CaclSectorShift(GetBytesPerSector(DbrBuffer));
    DbrBuffer = buffer.release();
    return 0;
}

bool CVolumeStorage::Close() {
    std::free(DbrBuffer);
    return CloseDevice();
}

void CVolumeStorage::CaclSectorShift(unsigned int size) {
    BytesPerSector = size;
    SectorShift = fatvol::Log2Floor(size);
}

int CVolumeStorage::ReadDbr(void* buffer) {
    return ReadBytesProc(this, static_cast<unsigned char*>(buffer), 0, SECTOR_MAXSIZE);
}

void CVolumeStorage::GetMpb(void* mpb) {
    GetMpbProc(DbrBuffer, mpb);
}

int CVolumeStorage::ReadBytes(unsigned char* buffer, long long position, unsigned int count) {
    return ReadBytesProc(this, buffer, position, count);
}

int CVolumeStorage::WriteBytes(unsigned char* buffer, long long position, unsigned int count) {
    return WriteBytesProc(this, buffer, position, count);
}

int CVolumeStorage::ReadBytesAligned(unsigned char* buffer, long long position,
                                     unsigned int count) {
    return ReadBytesAlignedProc(this, buffer, position, count);
}

int CVolumeStorage::WriteBytesAligned(unsigned char* buffer, long long position,
                                      unsigned int count) {
    return WriteBytesAlignedProc(this, buffer, position, count);
}

int CVolumeStorage::ReadSectors(unsigned char* buffer, long long position, unsigned int count) {
    return ReadSectorsProc(this, buffer, position, count);
}

int CVolumeStorage::WriteSectors(unsigned char* buffer, long long position, unsigned int count) {
    return WriteSectorsProc(this, buffer, position, count);
}
