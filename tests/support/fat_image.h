// The tests' own knowledge of the FAT format, apart from the library's: volume geometry, FAT
// entries, names, and the plain tree that the contents of volumes are compared as.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "memory_disk.h"

namespace fatvol::test {

using ShortName = std::array<uint8_t, 11>;  // base and extension, padded with spaces
using Slot = std::array<uint8_t, 32>;       // a directory entry

inline uint32_t Get16(const uint8_t* bytes) {
    return bytes[0] | uint32_t{bytes[1]} << 8;
}
inline uint32_t Get32(const uint8_t* bytes) {
    return Get16(bytes) | Get16(bytes + 2) << 16;
}
void Put16(uint8_t* bytes, uint32_t value);
void Put32(uint8_t* bytes, uint32_t value);

// What a boot sector says. Positions are in bytes from the start of the volume.
struct Geometry {
    uint32_t fatType = 0;  // 12, 16 or 32
    uint32_t bytesPerSector = 0, sectorsPerCluster = 0, clusterBytes = 0;
    uint32_t reservedSectors = 0, fatCount = 0, fatSectors = 0, totalSectors = 0;
    uint32_t clusterCount = 0;                   // clusters 2 to clusterCount + 1 exist
    uint32_t rootCluster = 0, fsInfoSector = 0;  // FAT32; 0 otherwise, or when there is none
    uint32_t media = 0;
    uint64_t fatBytes = 0;                     // of one FAT
    uint64_t rootPosition = 0, rootBytes = 0;  // FAT12 and FAT16; whole sectors
    uint64_t dataPosition = 0;
    uint32_t badMark = 0;  // of the FAT; greater values end a chain

    bool HasCluster(uint32_t cluster) const { return cluster >= 2 && cluster - 2 < clusterCount; }
    uint64_t ClusterPosition(uint32_t cluster) const {
        return dataPosition + uint64_t{cluster - 2} * clusterBytes;
    }
    uint64_t FatPosition(uint32_t copy) const {
        return uint64_t{reservedSectors} * bytesPerSector + copy * fatBytes;
    }
};

// Any boot sector gives some geometry; one whose regions do not fit has no clusters.
Geometry ReadGeometry(const MemoryDisk& disk);

// The entry `index` of FAT bytes that start with entry 0 and go on for 4 bytes after the last one
// asked for. 28 bits of a FAT32 entry.
uint32_t DecodeFatEntry(const uint8_t* fat, uint32_t fatType, uint32_t index);
uint32_t GetFatEntry(const MemoryDisk& disk, const Geometry& geometry, uint32_t cluster,
                     uint32_t copy = 0);
// Stores all 32 bits of a FAT32 entry.
void PutFatEntry(MemoryDisk& disk, const Geometry& geometry, uint32_t cluster, uint32_t value,
                 uint32_t copy);

// Of the first 11 bytes of a slot.
uint8_t NameChecksum(const uint8_t* shortName);
std::u16string DisplayName(const uint8_t* shortName);  // BASE.EXT or BASE, one unit per byte
std::u16string FoldAscii(std::u16string name);
std::string Printable(std::u16string_view text);
std::u16string JoinPath(const std::u16string& directory, const std::u16string& name);

struct TreeNode {
    Slot entry;  // the short entry as it stands on disk
    std::vector<uint8_t> content;

    uint8_t Attributes() const { return entry[11]; }
    bool IsDirectory() const { return (entry[11] & 0x10) != 0; }
    uint32_t Size() const { return Get32(&entry[28]); }
    uint32_t FirstCluster() const { return Get16(&entry[20]) << 16 | Get16(&entry[26]); }
    bool operator==(const TreeNode&) const = default;
};

// Path without leading backslash -> node; no dot entries, no volume label.
using Tree = std::map<std::u16string, TreeNode>;

// In paths, attributes, sizes and contents: empty when equal, otherwise the first few differences.
std::string Difference(const Tree& expected, const Tree& actual);

}  // namespace fatvol::test
