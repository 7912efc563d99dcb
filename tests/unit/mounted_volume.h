// A library with one volume mounted on a test's disk, below the exported functions.
#pragma once

#include <gtest/gtest.h>

#include <deque>

#include "api/library_state.h"
#include "support/memory_storage.h"
#include "support/random_tree.h"
#include "volume/fat_volume.h"
#include "volume/mount.h"

namespace fatvol::test {

struct MountedVolume {
    explicit MountedVolume(MemoryDisk& disk) {
        EXPECT_TRUE(CreateLibrary());
        volume = MountStorage(std::make_unique<MemoryStorage>(disk), nullptr);
    }
    ~MountedVolume() {
        EXPECT_TRUE(volume && Succeeded(UnmountVolume(*volume)));
        volume.reset();
        DestroyLibrary();
    }
    FatVolume& operator*() const { return *volume; }

    std::unique_ptr<FatVolume> volume;
};

}  // namespace fatvol::test
