#include "file_storage.h"

#include <fmt/format.h>

namespace tool {

FileStorage::FileStorage(const std::string& imagePath, platform::ImageAccess access,
                         StorageRecord* record)
    : imagePath_(imagePath), access_(access), record_(record) {
    HostContext = 0;
    DbrBuffer = nullptr;
    SectorShift = 0;
    BytesPerSector = 0;
    const bool canWrite = access == platform::ImageAccess::ReadWrite;
    GetMpbProc = _GetMpb;
    ReadBytesProc = ReadBytesAlignedProc = ReadAtByte;
    WriteBytesProc = WriteBytesAlignedProc = canWrite ? WriteAtByte : RefuseWrite;
    ReadSectorsProc = ReadAtSector;
    WriteSectorsProc = canWrite ? WriteAtSector : RefuseWrite;
}

int FileStorage::OpenDevice(void*) {
    if (const int error = image_.Open(imagePath_, access_); error != 0) {
        return Fail("cannot open: " + platform::ErrorText(error));
    }
    record_->stage = StorageRecord::Stage::Opened;
    if (image_.SizeBytes() < SECTOR_MAXSIZE) {
        return Fail(fmt::format("shorter than {} bytes, the least that a volume takes",
                                static_cast<int>(SECTOR_MAXSIZE)));
    }
    return 0;
}

bool FileStorage::CloseDevice() {
    const int error = image_.Close();
    if (error != 0) {
        Fail("cannot close: " + platform::ErrorText(error));
    }
    return error == 0;
}

bool FileStorage::IsDbrOk(void* bootSector) {
    const bool isOk = CFatStorage::IsDbrOk(bootSector);
    record_->stage =
        isOk ? StorageRecord::Stage::BootSectorAccepted : StorageRecord::Stage::BootSectorRefused;
    return isOk;
}

int FileStorage::ReadAtByte(CVolumeStorage* storage, unsigned char* buffer, long long position,
                            unsigned int count) {
    return static_cast<FileStorage*>(storage)->Read(buffer, position, count);
}

int FileStorage::WriteAtByte(CVolumeStorage* storage, unsigned char* buffer, long long position,
                             unsigned int count) {
    return static_cast<FileStorage*>(storage)->Write(buffer, position, count);
}

int FileStorage::ReadAtSector(CVolumeStorage* storage, unsigned char* buffer, long long position,
                              unsigned int count) {
    const unsigned int sectorBytes = storage->BytesPerSector;
    return static_cast<FileStorage*>(storage)->Read(buffer, position * sectorBytes,
                                                    Bytes{count} * sectorBytes);
}

int FileStorage::WriteAtSector(CVolumeStorage* storage, unsigned char* buffer, long long position,
                               unsigned int count) {
    const unsigned int sectorBytes = storage->BytesPerSector;
    return static_cast<FileStorage*>(storage)->Write(buffer, position * sectorBytes,
                                                     Bytes{count} * sectorBytes);
}

// Leaves no trouble behind: unmounting tries to write even when nothing was changed.
int FileStorage::RefuseWrite(CVolumeStorage*, unsigned char*, long long, unsigned int) {
    return -1;
}

int FileStorage::Read(unsigned char* buffer, long long positionBytes, Bytes count) {
    if (!Holds(positionBytes, count)) {
        return Fail(fmt::format("read of {} bytes at byte {}: past the end of the image", count,
                                positionBytes));
    }
    const int error = image_.Read(buffer, static_cast<Bytes>(positionBytes), count);
    return error == 0 ? 0
                      : Fail(fmt::format("read of {} bytes at byte {}: {}", count, positionBytes,
                                         platform::ErrorText(error)));
}

int FileStorage::Write(const unsigned char* buffer, long long positionBytes, Bytes count) {
    if (!Holds(positionBytes, count)) {
        return Fail(fmt::format("write of {} bytes at byte {}: past the end of the image", count,
                                positionBytes));
    }
    const int error = image_.Write(buffer, static_cast<Bytes>(positionBytes), count);
    return error == 0 ? 0
                      : Fail(fmt::format("write of {} bytes at byte {}: {}", count, positionBytes,
                                         platform::ErrorText(error)));
}

bool FileStorage::Holds(long long positionBytes, Bytes count) const {
    const Bytes sizeBytes = image_.SizeBytes();
    return positionBytes >= 0 && static_cast<Bytes>(positionBytes) <= sizeBytes &&
           count <= sizeBytes - static_cast<Bytes>(positionBytes);
}

int FileStorage::Fail(const std::string& trouble) {
    if (record_->trouble.empty()) {
        record_->trouble = trouble;
    }
    return -1;
}

}  // namespace tool
