// Builds volumes of any geometry, and any sound or broken contents, straight into a MemoryDisk.
#pragma once

#include <optional>
#include <set>

#include "fat_image.h"

namespace fatvol::test {

// Zero means the usual value for the type and the sector size.
struct VolumeLayout {
    uint32_t fatType = 16;
    uint32_t bytesPerSector = 512;
    uint32_t sectorsPerCluster = 1;
    uint32_t clusterCount = 5000;  // exact
    uint32_t reservedSectors = 0;  // at least 512 bytes of them, of FAT32 eight times that
    uint32_t fatCount = 2;
    uint32_t rootEntryCount = 512;  // FAT12 and FAT16
    uint32_t fatSectors = 0;
    uint32_t rootCluster = 2;  // FAT32
    uint32_t tailSectors = 0;  // after the last cluster; less than a cluster
    uint8_t fill = 0;          // what space never written reads as
};

// 2024-03-15, 13:45:30
struct EntryTimes {
    uint8_t createTenth = 0;
    uint16_t createTime = 0x6DAF, createDate = 0x586F, accessDate = 0x586F;
    uint16_t writeTime = 0x6DAF, writeDate = 0x586F;
};

struct EntryOptions {
    uint8_t attributes = 0x20;  // AddDirectory adds 0x10 to it and takes 0x20 away
    EntryTimes times;
    bool alwaysLong = false;         // has a long name even if the short one shows the same
    std::optional<ShortName> alias;  // of a long name; made automatically otherwise
    std::vector<uint32_t> clusters;  // the chain in order, all free; taken automatically otherwise
    std::optional<uint32_t> size;    // DIR_FileSize, when not that of the content
};

Slot MakeShortEntry(const ShortName& name, uint8_t attributes, uint32_t firstCluster, uint32_t size,
                    const EntryTimes& times = {});
inline constexpr int longNameOffsets[] = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};
// The long-name entries of a name of 1 to 260 units, in the order in which they stand on disk.
std::vector<Slot> MakeLongEntries(const std::u16string& name, uint8_t checksum);
// The short form of a name that needs no other: plain upper-case 8.3.
std::optional<ShortName> PlainShortName(const std::u16string& name);

// Requests for which there is no room throw std::runtime_error. Directories are named by the
// numbers that AddDirectory returns.
class ImageBuilder {
public:
    static constexpr size_t root = 0;

    explicit ImageBuilder(const VolumeLayout& layout);

    size_t AddDirectory(size_t parent, const std::u16string& name,
                        const EntryOptions& options = {});
    // Returns the byte position of the short entry.
    uint64_t AddFile(size_t parent, const std::u16string& name,
                     const std::vector<uint8_t>& content = {}, const EntryOptions& options = {});
    void AddVolumeLabel(const ShortName& label);
    // Appends slots as they are; returns the byte position of the last one.
    uint64_t AddRawSlots(size_t directory, const std::vector<Slot>& slots);
    void AddDeletedSlots(size_t directory, uint32_t count);

    // One FAT entry, in every copy; keeps the free count of FSInfo right.
    void SetFatEntry(uint32_t cluster, uint32_t value);
    void SetBootField(uint32_t offset, uint32_t sizeBytes, uint32_t value);

    uint32_t FreeClusters() const { return freeClusters; }
    uint64_t FreeSlots(size_t directory) const;  // before it grows
    uint64_t SlotPosition(size_t directory, uint32_t slot) const;
    uint32_t FirstCluster(size_t directory) const;  // 0 for the root of FAT12 and FAT16
    const std::u16string& Path(size_t directory) const { return directories.at(directory).path; }

    MemoryDisk disk;
    const Geometry geometry;
    Tree tree;  // everything added so far
    // Automatic clusters come from the end of this list, as far as they are free, then from the
    // lowest free ones.
    std::vector<uint32_t> allocationOrder;

private:
    struct Directory {
        std::u16string path;
        std::vector<uint32_t> clusters;  // empty for the fixed root
        uint32_t usedSlots = 0;
    };

    uint32_t TakeCluster();
    std::vector<uint32_t> TakeChain(const EntryOptions& options, uint64_t bytes);
    uint64_t AddEntry(size_t parent, const std::u16string& name, const EntryOptions& options,
                      TreeNode node);

    std::vector<Directory> directories;
    uint32_t lowestFree = 2;
    uint32_t freeClusters;
    std::vector<bool> used;
};

}  // namespace fatvol::test
