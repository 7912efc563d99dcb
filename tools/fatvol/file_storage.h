// The storage object behind which the library finds an image file.
#pragma once

#include <string>

#include "fatvol.h"
#include "platform.h"

namespace tool {

// What the library keeps to itself: how far the mount came, and the first transfer that failed.
// Outlives the storage object, which a failed mount deletes.
struct StorageRecord {
    enum class Stage { Untouched, Opened, BootSectorRefused, BootSectorAccepted };
    Stage stage = Stage::Untouched;
    std::string trouble;  // a phrase for a message; empty while nothing failed
};

class FileStorage final : public CFatStorage {
public:
    // `record` must outlive the object.
    FileStorage(const std::string& imagePath, platform::ImageAccess access, StorageRecord* record);

    // `parameter` is not used.
    int OpenDevice(void* parameter) override;
    void PrepareDevice() override {}
    bool CloseDevice() override;

protected:
    bool IsDbrOk(void* bootSector) override;

private:
    using Bytes = unsigned long long;

    static int ReadAtByte(CVolumeStorage* storage, unsigned char* buffer, long long position,
                          unsigned int count);
    static int WriteAtByte(CVolumeStorage* storage, unsigned char* buffer, long long position,
                           unsigned int count);
    static int ReadAtSector(CVolumeStorage* storage, unsigned char* buffer, long long position,
                            unsigned int count);
    static int WriteAtSector(CVolumeStorage* storage, unsigned char* buffer, long long position,
                             unsigned int count);
    static int RefuseWrite(CVolumeStorage* storage, unsigned char* buffer, long long position,
                           unsigned int count);

    int Read(unsigned char* buffer, long long positionBytes, Bytes count);
    int Write(const unsigned char* buffer, long long positionBytes, Bytes count);

    // Whether the image holds all these bytes. A write must not make the image longer either.
    bool Holds(long long positionBytes, Bytes count) const;

    int Fail(const std::string& trouble);

    const std::string imagePath_;
    const platform::ImageAccess access_;
    StorageRecord* const record_;
    platform::ImageFile image_;
};

}  // namespace tool
