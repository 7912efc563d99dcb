// The library and a mounted image, each held for as long as an object lives.
#pragma once

#include <string>

#include "fatvol.h"
#include "file_storage.h"
#include "platform.h"

namespace tool {

class LibrarySession {
public:
    LibrarySession() { Fat_LibInitialize(); }
    LibrarySession(const LibrarySession&) = delete;
    LibrarySession& operator=(const LibrarySession&) = delete;
    ~LibrarySession() { Fat_LibTerminate(); }
};

// A mounted volume, which is the current one. Needs a LibrarySession that outlives it.
class MountedImage {
public:
    // Throws Failure.
    MountedImage(const std::string& imagePath, platform::ImageAccess access);
    MountedImage(const MountedImage&) = delete;
    MountedImage& operator=(const MountedImage&) = delete;
    ~MountedImage();

    // Writes what is pending and closes the image. Throws Failure when not everything that was
    // changed reached the image; it is closed all the same. Nothing to do the second time.
    void Unmount();

    // Throws Failure.
    FatVolumeInfo Info() const;

    // Writes what is pending. Throws Failure when not all of it reached the image.
    void Flush();

    // How many entries the root directory has room for; 0 when it grows like any other (FAT32).
    unsigned int FixedRootSlots() const;

    // To call before an operation: what failed in the storage earlier is no cause of it.
    void ForgetTrouble() { record_.trouble.clear(); }

    // Why an operation failed: the trouble that the storage had with it, or else `fallback`.
    std::string CauseOr(const std::string& fallback);

private:
    std::string WhyNotMounted();

    const platform::ImageAccess access_;
    StorageRecord record_;
    FileStorage* storage_ = nullptr;  // the library's, as long as the volume is mounted
    FatVolume* volume_ = nullptr;
};

}  // namespace tool
