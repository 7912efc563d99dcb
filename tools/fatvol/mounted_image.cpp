#include "mounted_image.h"

#include <utility>

#include "report.h"

namespace tool {

MountedImage::MountedImage(const std::string& imagePath, platform::ImageAccess access)
    : access_(access) {
    // The library owns the storage object from the call on, whatever becomes of the mount.
    volume_ = Fat_Mount(new FileStorage(imagePath, access, &record_), nullptr);
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
