// The room that new files and directories take, reckoned up before anything is written.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mounted_image.h"

namespace tool {

// The longest file: sizes have 32 bits, and the last cluster is left out.
std::uint64_t MaxFileBytes(const FatVolumeInfo& info);

// How many 32-byte entries a name takes in its directory.
unsigned int SlotsOfName(std::u16string_view name);

class SpaceBudget {
public:
    explicit SpaceBudget(MountedImage& image);

    // What is added is taken from the room, in the order of the calls; what a file that is removed
    // gives back can be used by those that come later.
    void AddFile(std::uint64_t sizeBytes);
    void RemoveFile(std::uint64_t sizeBytes);
    void AddDirectory(std::uint64_t slots);

    // Entries added to an existing directory. Of a root directory without a fixed size, the free
    // ones among its entries are guessed from its names. Throws Failure when it cannot be read.
    void AddEntries(const std::u16string& directory, std::uint64_t slots);

    // What is missing, in words; `fallback` when there is room enough.
    std::string ShortageOr(const std::string& fallback) const;

    // Throws Failure when something is missing.
    void RequireEnough() const;

private:
    struct Slots {
        std::uint64_t used;
        std::uint64_t total;
    };
    Slots SlotsOf(const std::u16string& directory);
    Slots SlotsOfRoot() const;
    std::uint64_t Clusters(std::uint64_t bytes) const;
    void Take(std::uint64_t clusters);

    MountedImage& image_;
    const FatVolumeInfo info_;
    std::uint64_t takenClusters_ = 0;
    std::uint64_t givenClusters_ = 0;
    std::uint64_t missingClusters_ = 0;
    std::string directoryShortage_;
};

}  // namespace tool
