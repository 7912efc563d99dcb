#include "fat_image.h"

#include <algorithm>
#include <cstdio>

namespace fatvol::test {

void Put16(uint8_t* bytes, uint32_t value) {
    bytes[0] = static_cast<uint8_t>(value);
    bytes[1] = static_cast<uint8_t>(value >> 8);
}

void Put32(uint8_t* bytes, uint32_t value) {
    Put16(bytes, value);
    Put16(bytes + 2, value >> 16);
}

Geometry ReadGeometry(const MemoryDisk& disk) {
    const std::vector<uint8_t> boot = disk.Read(0, 512);
    const bool isFat32 = Get16(&boot[22]) == 0;
    Geometry g;
    g.bytesPerSector = Get16(&boot[11]);
    g.sectorsPerCluster = boot[13];
    g.clusterBytes = g.bytesPerSector * g.sectorsPerCluster;
    g.reservedSectors = Get16(&boot[14]);
    g.fatCount = boot[16];
    g.fatSectors = isFat32 ? Get32(&boot[36]) : Get16(&boot[22]);
    g.totalSectors = Get16(&boot[19]) != 0 ? Get16(&boot[19]) : Get32(&boot[32]);
    g.media = boot[21];
    g.fatBytes = uint64_t{g.fatSectors} * g.bytesPerSector;
    g.rootPosition = g.FatPosition(g.fatCount);
    uint64_t metaSectors = g.reservedSectors + uint64_t{g.fatCount} * g.fatSectors;
    if (isFat32) {
        g.rootCluster = Get32(&boot[44]);
        g.fsInfoSector = Get16(&boot[48]) == 0xFFFF ? 0 : Get16(&boot[48]);
    } else if (g.bytesPerSector != 0) {
        const uint32_t rootSectors =
            (Get16(&boot[17]) * 32 + g.bytesPerSector - 1) / g.bytesPerSector;
        g.rootBytes = uint64_t{rootSectors} * g.bytesPerSector;
        metaSectors += rootSectors;
    }
    g.dataPosition = g.rootPosition + g.rootBytes;
    if (g.sectorsPerCluster != 0 && metaSectors < g.totalSectors) {
        g.clusterCount =
            static_cast<uint32_t>((g.totalSectors - metaSectors) / g.sectorsPerCluster);
    }
    g.fatType = isFat32 ? 32 : g.clusterCount < 4087 ? 12 : 16;
    g.badMark = isFat32 ? 0x0FFFFFF7 : g.fatType == 12 ? 0xFF7 : 0xFFF7;
    return g;
}

uint32_t DecodeFatEntry(const uint8_t* fat, uint32_t fatType, uint32_t index) {
    const uint64_t bit = uint64_t{index} * fatType;
    const uint32_t mask = fatType == 32 ? 0x0FFFFFFF : (1U << fatType) - 1;
    return Get32(fat + bit / 8) >> bit % 8 & mask;
}

uint32_t GetFatEntry(const MemoryDisk& disk, const Geometry& geometry, uint32_t cluster,
                     uint32_t copy) {
    // Even entries start at a whole byte on every type.
    const uint64_t pair = uint64_t{cluster & ~1U} * geometry.fatType / 8;
    std::array<uint8_t, 8> bytes;
    disk.Read(geometry.FatPosition(copy) + pair, bytes.data(), bytes.size());
    return DecodeFatEntry(bytes.data(), geometry.fatType, cluster & 1);
}

void PutFatEntry(MemoryDisk& disk, const Geometry& geometry, uint32_t cluster, uint32_t value,
                 uint32_t copy) {
    const uint32_t type = geometry.fatType;
    const uint64_t bit = uint64_t{cluster} * type;
    const uint32_t mask = (type == 32 ? 0xFFFFFFFF : (1U << type) - 1) << bit % 8;
    std::array<uint8_t, 4> bytes;
    disk.Read(geometry.FatPosition(copy) + bit / 8, bytes.data(), bytes.size());
    Put32(bytes.data(), (Get32(bytes.data()) & ~mask) | (value << bit % 8 & mask));
    disk.Write(geometry.FatPosition(copy) + bit / 8, bytes.data(), bytes.size());
}

uint8_t NameChecksum(const uint8_t* shortName) {
    unsigned int sum = 0;
    for (int i = 0; i < 11; ++i) {
        sum = ((sum >> 1 | sum << 7) + shortName[i]) & 0xFF;
    }
    return static_cast<uint8_t>(sum);
}

std::u16string DisplayName(const uint8_t* shortName) {
    const auto trimmed = [](const uint8_t* begin, const uint8_t* end) {
        const std::u16string padded(begin, end);
        return padded.substr(0, padded.find_last_not_of(u' ') + 1);
    };
    const std::u16string base = trimmed(shortName, shortName + 8);
    const std::u16string extension = trimmed(shortName + 8, shortName + 11);
    return extension.empty() ? base : base + u'.' + extension;
}

std::u16string FoldAscii(std::u16string name) {
    for (char16_t& unit : name) {
        unit = unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 0x20) : unit;
    }
    return name;
}

std::string Printable(std::u16string_view text) {
    std::string out;
    for (const char16_t unit : text) {
        char escape[8];
        const bool isPlain = unit >= 0x20 && unit < 0x7F;
        std::snprintf(escape, sizeof(escape), isPlain ? "%c" : "<%04X>", unsigned{unit});
        out += escape;
    }
    return out;
}

std::u16string JoinPath(const std::u16string& directory, const std::u16string& name) {
    return directory.empty() ? name : directory + u'\\' + name;
}

std::string Difference(const Tree& expected, const Tree& actual) {
    std::string out;
    const auto report = [&](const std::u16string& path, const std::string& text) {
        if (std::count(out.begin(), out.end(), '\n') < 5) {
            out += Printable(path) + ": " + text + "\n";
        }
    };
    for (const auto& [path, node] : expected) {
        const auto found = actual.find(path);
        if (found == actual.end()) {
            report(path, "missing");
            continue;
        }
        const TreeNode& other = found->second;
        const auto& bytes = other.content;
        if (node.Attributes() != other.Attributes() || node.Size() != other.Size()) {
            report(path, "attributes or size " + std::to_string(other.Size()));
        } else if (node.content != bytes) {
            const auto at =
                std::mismatch(node.content.begin(), node.content.end(), bytes.begin(), bytes.end());
            report(path, "content differs at " + std::to_string(at.second - bytes.begin()));
        }
    }
    for (const auto& found : actual) {
        if (!expected.contains(found.first)) {
            report(found.first, "unexpected");
        }
    }
    return out;
}

}  // namespace fatvol::test
