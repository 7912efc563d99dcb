#include "mounted_image.h"

#include <algorithm>
#include <utility>

#include "report.h"

namespace tool {

MountedImage::MountedImage(const std::string& imagePath, platform::ImageAccess access)
    : access_(access) {
    // The library owns the storage object from the call on, whatever becomes of the mount.
    storage_ = new FileStorage(imagePath, access, &record_);
    volume_ = Fat_Mount(storage_, nullptr);
    if (volume_ == nullptr) {
        throw Failure{"", WhyNotMounted()};
    }
    ForgetTrouble();
}

MountedImage::~MountedImage() {
    try {
        Unmount();
    } catch (const Failure&) {
        // Whoever wants to know has called Unmount before.
    }
}

void MountedImage::Unmount() {
    FatVolume* const volume = std::exchange(volume_, nullptr);
    if (volume == nullptr) {
        return;
    }
    ForgetTrouble();
    const bool complete = Fat_Unmount(volume);
    if (!complete) {
        Fat_Unmount(volume);
    }
    const bool canHaveChanged = access_ == platform::ImageAccess::ReadWrite;
    if (canHaveChanged && (!complete || !record_.trouble.empty())) {
        throw Failure{"", CauseOr("not all changes could be written")};
    }
}

FatVolumeInfo MountedImage::Info() const {
    FatVolumeInfo info{};
    info.size = sizeof info;
    if (!Fat_GetVolumeInfo(volume_, &info)) {
        throw Failure{"", "the volume cannot be described"};
    }
    return info;
}

void MountedImage::Flush() {
    ForgetTrouble();
    if (!Fat_FlushVolume(volume_)) {
        throw Failure{"",
                      "not everything reached the image: " + CauseOr("an earlier write failed")};
    }
}

unsigned int MountedImage::FixedRootSlots() const {
    constexpr unsigned int kSlotBytes = 32;
    const unsigned char* const rootEntryCount = storage_->DbrBuffer + 17;  // two bytes
    const unsigned int slots = rootEntryCount[0] | static_cast<unsigned int>(rootEntryCount[1])
                                                       << 8;
    const unsigned int perSector = std::max(storage_->BytesPerSector / kSlotBytes, 1U);
    return Info().fatType == 32 ? 0 : (slots + perSector - 1) / perSector * perSector;
}

std::string MountedImage::CauseOr(const std::string& fallback) {
    std::string trouble = std::exchange(record_.trouble, std::string());
    return trouble.empty() ? fallback : trouble;
}

std::string MountedImage::WhyNotMounted() {
    using Stage = StorageRecord::Stage;
    switch (record_.stage) {
        case Stage::BootSectorRefused:
            return "no FAT volume: its first sector is not the boot sector of one";
        case Stage::BootSectorAccepted:
            return CauseOr("the volume is damaged or of an unsupported kind: it cannot be mounted");
        case Stage::Untouched:
        case Stage::Opened:
            break;
    }
    return CauseOr("the library could not be set up: out of memory");
}

}  // namespace tool
