// CFatStorage: the boot-sector operations of a FAT volume.
#include <cstring>

#include "api/fatvol.h"
#include "storage/boot_sector.h"

CFatStorage::CFatStorage() {}
CFatStorage::CFatStorage(const CFatStorage&) = default;
CFatStorage::CFatStorage(CFatStorage&&) = default;
CFatStorage& CFatStorage::operator=(const CFatStorage&) = default;
CFatStorage& CFatStorage::operator=(CFatStorage&&) = default;
CFatStorage::~CFatStorage() = default;

bool CFatStorage::IsDbrOk(void* bootSector) {
    return fatvol::IsBootSectorOk(static_cast<unsigned char*>(bootSector));
}

unsigned int CFatStorage::GetBytesPerSector(void* bootSector) {
    return fatvol::BytesPerSectorOf(static_cast<const unsigned char*>(bootSector));
}

void CFatStorage::_GetMpb(void* bootSector, void* mpb) {
    const fatvol::Mpb record = fatvol::MakeMpb(static_cast<const unsigned char*>(bootSector));
    std::memcpy(mpb, &record, sizeof record);
}
