#include "image_builder.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace fatvol::test {

namespace {

constexpr uint32_t endOfChain = 0x0FFFFFFF;

[[noreturn]] void Refuse(const std::string& what) {
    throw std::runtime_error("image builder: " + what);
}

uint32_t DivideUp(uint64_t value, uint64_t unit) {
    return static_cast<uint32_t>((value + unit - 1) / unit);
}

// Sectors for 512 bytes, so that boot sector and FSInfo never overlap.
uint32_t BootSectors(const VolumeLayout& layout) {
    return DivideUp(512, layout.bytesPerSector);
}

// Replaces the zeros of a layout by the usual values.
VolumeLayout Complete(VolumeLayout l) {
    if (l.reservedSectors == 0) {
        l.reservedSectors = (l.fatType == 32 ? 32 : 1) * BootSectors(l);
    }
    if (l.fatSectors == 0) {
        l.fatSectors = DivideUp((uint64_t{l.clusterCount} + 2) * l.fatType, 8 * l.bytesPerSector);
    }
    l.rootEntryCount = l.fatType == 32 ? 0 : l.rootEntryCount;
    return l;
}

uint32_t TotalSectors(const VolumeLayout& l) {
    return l.reservedSectors + l.fatCount * l.fatSectors +
           DivideUp(l.rootEntryCount * 32, l.bytesPerSector) +
           l.clusterCount * l.sectorsPerCluster + l.tailSectors;
}

std::vector<uint8_t> MakeBootSector(const VolumeLayout& l) {
    std::vector<uint8_t> boot(512);
    const auto putText = [&](size_t at, std::string_view text) {
        std::copy(text.begin(), text.end(), &boot[at]);
    };
    const bool isFat32 = l.fatType == 32;
    const uint32_t total = TotalSectors(l);
    putText(0, isFat32 ? "\xEB\x58\x90TESTDISK" : "\xEB\x3C\x90TESTDISK");
    Put16(&boot[11], l.bytesPerSector);
    boot[13] = static_cast<uint8_t>(l.sectorsPerCluster);
    Put16(&boot[14], l.reservedSectors);
    boot[16] = static_cast<uint8_t>(l.fatCount);
    Put16(&boot[17], l.rootEntryCount);
    const bool isTotal16 = total < 65536 && !isFat32;
    Put16(&boot[19], isTotal16 ? total : 0);
    boot[21] = 0xF8;
    Put16(&boot[22], isFat32 ? 0 : l.fatSectors);
    Put32(&boot[32], isTotal16 ? 0 : total);
    if (isFat32) {
        Put32(&boot[36], l.fatSectors);
        Put32(&boot[44], l.rootCluster);
        Put16(&boot[48], BootSectors(l));      // FSInfo
        Put16(&boot[50], 6 * BootSectors(l));  // copies of both
    }
    const size_t tail = isFat32 ? 66 : 38;
    boot[tail] = 0x29;  // serial number, label and type follow
    putText(tail + 5, "NO NAME    ");
    Put16(&boot[510], 0xAA55);
    return boot;
}

// The disk with boot sectors, FSInfo with counts unknown, zeroed FATs and fixed root directory.
MemoryDisk MakeDisk(const VolumeLayout& layout) {
    const uint64_t sector = layout.bytesPerSector;
    MemoryDisk disk(std::max<uint64_t>(TotalSectors(layout) * sector, 2048), layout.fill);
    const std::vector<uint8_t> boot = MakeBootSector(layout);
    disk.Write(0, boot.data(), boot.size());
    disk.Fill(512, ReadGeometry(disk).dataPosition - 512, 0);
    if (layout.fatType == 32) {
        std::vector<uint8_t> info(512);
        Put32(&info[0], 0x41615252);
        Put32(&info[484], 0x61417272);
        Put32(&info[488], 0xFFFFFFFF);
        Put32(&info[492], 0xFFFFFFFF);
        Put32(&info[508], 0xAA550000);
        const uint64_t unit = BootSectors(layout) * sector;
        disk.Write(unit, info.data(), info.size());
        disk.Write(6 * unit, boot.data(), boot.size());
        disk.Write(7 * unit, info.data(), info.size());
    }
    return disk;
}

ShortName PadShortName(std::u16string base, std::u16string extension) {
    base.resize(8, u' ');
    extension.resize(3, u' ');
    const auto narrow = [](char16_t unit) { return static_cast<uint8_t>(unit); };
    ShortName name;
    std::transform(base.begin(), base.end(), name.begin(), narrow);
    std::transform(extension.begin(), extension.end(), name.begin() + 8, narrow);
    return name;
}

}  // namespace

Slot MakeShortEntry(const ShortName& name, uint8_t attributes, uint32_t firstCluster, uint32_t size,
                    const EntryTimes& times) {
    Slot slot{};
    std::copy(name.begin(), name.end(), slot.begin());
    slot[11] = attributes;
    slot[13] = times.createTenth;
    Put16(&slot[14], times.createTime);
    Put16(&slot[16], times.createDate);
    Put16(&slot[18], times.accessDate);
    Put16(&slot[20], firstCluster >> 16);
    Put16(&slot[22], times.writeTime);
    Put16(&slot[24], times.writeDate);
    Put16(&slot[26], firstCluster);
    Put32(&slot[28], size);
    return slot;
}

std::vector<Slot> MakeLongEntries(const std::u16string& name, uint8_t checksum) {
    std::vector<Slot> slots;
    const size_t count = (name.size() + 12) / 13;
    for (size_t k = count; k > 0; --k) {
        Slot slot{};
        slot[0] = static_cast<uint8_t>(k == count ? k | 0x40 : k);
        slot[11] = 0x0F;
        slot[13] = checksum;
        size_t at = 13 * (k - 1);
        for (const int offset : longNameOffsets) {
            const uint32_t padding = at == name.size() ? 0 : 0xFFFF;
            Put16(slot.data() + offset, at < name.size() ? name[at] : padding);
            ++at;
        }
        slots.push_back(slot);
    }
    return slots;
}

std::optional<ShortName> PlainShortName(const std::u16string& name) {
    const size_t dot = std::min(name.find(u'.'), name.size());
    const std::u16string base = name.substr(0, dot);
    const std::u16string extension = dot < name.size() ? name.substr(dot + 1) : u"";
    const bool isPlain = std::all_of(name.begin(), name.end(), [](char16_t unit) {
        return unit > 0x20 && unit < 0x7F && (unit < u'a' || unit > u'z') &&
               std::u16string_view(u"\"*+,/:;<=>?[\\]|").find(unit) == std::u16string_view::npos;
    });
    if (!isPlain || base.empty() || base.size() > 8 || extension.size() > 3 ||
        extension.find(u'.') != extension.npos || dot + 1 == name.size()) {
        return std::nullopt;
    }
    return PadShortName(base, extension);
}

ImageBuilder::ImageBuilder(const VolumeLayout& layout)
    : disk(MakeDisk(Complete(layout))),
      geometry(ReadGeometry(disk)),
      directories(1),
      freeClusters(geometry.clusterCount),
      used(size_t{geometry.clusterCount} + 2) {
    disk.dataPosition = geometry.dataPosition;
    disk.clusterBytes = geometry.clusterBytes;
    SetFatEntry(0, 0x0FFFFF00 | geometry.media);
    SetFatEntry(1, endOfChain);
    if (geometry.fatType == 32) {
        SetFatEntry(geometry.rootCluster, endOfChain);
        disk.Fill(geometry.ClusterPosition(geometry.rootCluster), geometry.clusterBytes, 0);
        directories[root].clusters = {geometry.rootCluster};
    }
}

void ImageBuilder::SetFatEntry(uint32_t cluster, uint32_t value) {
    for (uint32_t copy = 0; copy < geometry.fatCount; ++copy) {
        PutFatEntry(disk, geometry, cluster, value, copy);
    }
    if (geometry.HasCluster(cluster) && used[cluster] != (value != 0)) {
        used[cluster] = value != 0;
        freeClusters = value != 0 ? freeClusters - 1 : freeClusters + 1;
        lowestFree = value != 0 ? lowestFree : std::min(lowestFree, cluster);
    }
    if (geometry.fsInfoSector != 0) {
        std::array<uint8_t, 8> counts;
        Put32(&counts[0], freeClusters);
        Put32(&counts[4], lowestFree);
        const uint64_t position = uint64_t{geometry.fsInfoSector} * geometry.bytesPerSector;
        disk.Write(position + 488, counts.data(), counts.size());
    }
}

void ImageBuilder::SetBootField(uint32_t offset, uint32_t sizeBytes, uint32_t value) {
    std::array<uint8_t, 4> bytes;
    Put32(bytes.data(), value);
    disk.Write(offset, bytes.data(), sizeBytes);
}

uint32_t ImageBuilder::TakeCluster() {
    while (!allocationOrder.empty() && used[allocationOrder.back()]) {
        allocationOrder.pop_back();
    }
    while (lowestFree < used.size() && used[lowestFree]) {
        ++lowestFree;
    }
    const uint32_t cluster = allocationOrder.empty() ? lowestFree : allocationOrder.back();
    if (!geometry.HasCluster(cluster)) {
        Refuse("volume full");
    }
    SetFatEntry(cluster, endOfChain);
    return cluster;
}

std::vector<uint32_t> ImageBuilder::TakeChain(const EntryOptions& options, uint64_t bytes) {
    std::vector<uint32_t> chain = options.clusters;
    const size_t count = chain.empty() ? DivideUp(bytes, geometry.clusterBytes) : chain.size();
    while (chain.size() < count) {
        chain.push_back(TakeCluster());
    }
    for (size_t i = 0; i < count; ++i) {
        SetFatEntry(chain[i], i + 1 < count ? chain[i + 1] : endOfChain);
    }
    return chain;
}

uint64_t ImageBuilder::FreeSlots(size_t directory) const {
    const Directory& dir = directories.at(directory);
    const uint64_t chainBytes = uint64_t{geometry.clusterBytes} * dir.clusters.size();
    return (dir.clusters.empty() ? geometry.rootBytes : chainBytes) / 32 - dir.usedSlots;
}

uint64_t ImageBuilder::SlotPosition(size_t directory, uint32_t slot) const {
    const Directory& dir = directories.at(directory);
    const uint64_t offset = uint64_t{slot} * 32;
    if (dir.clusters.empty()) {
        return geometry.rootPosition + offset;
    }
    return geometry.ClusterPosition(dir.clusters.at(offset / geometry.clusterBytes)) +
           offset % geometry.clusterBytes;
}

uint32_t ImageBuilder::FirstCluster(size_t directory) const {
    const Directory& dir = directories.at(directory);
    return dir.clusters.empty() ? 0 : dir.clusters.front();
}

uint64_t ImageBuilder::AddRawSlots(size_t directory, const std::vector<Slot>& slots) {
    Directory& dir = directories.at(directory);
    uint64_t position = 0;
    for (const Slot& slot : slots) {
        if (FreeSlots(directory) == 0) {
            if (dir.clusters.empty() || dir.usedSlots == 65536) {
                Refuse("directory full");
            }
            const uint32_t cluster = TakeCluster();
            SetFatEntry(dir.clusters.back(), cluster);
            dir.clusters.push_back(cluster);
            disk.Fill(geometry.ClusterPosition(cluster), geometry.clusterBytes, 0);
        }
        position = SlotPosition(directory, dir.usedSlots++);
        disk.Write(position, slot.data(), slot.size());
    }
    return position;
}

void ImageBuilder::AddDeletedSlots(size_t directory, uint32_t count) {
    const ShortName name = {0xE5, 'E', 'L', 'E', 'T', 'E', 'D', ' ', 'B', 'I', 'N'};
    AddRawSlots(directory, std::vector<Slot>(count, MakeShortEntry(name, 0x20, 0, 0)));
}

void ImageBuilder::AddVolumeLabel(const ShortName& label) {
    AddRawSlots(root, {MakeShortEntry(label, 0x08, 0, 0)});
}

uint64_t ImageBuilder::AddEntry(size_t parent, const std::u16string& name,
                                const EntryOptions& options, TreeNode node) {
    const std::optional<ShortName> plain = PlainShortName(name);
    char alias[12];
    std::snprintf(alias, sizeof(alias), "LN~%05u   ", static_cast<unsigned>(tree.size() % 100000));
    ShortName automatic;
    std::copy_n(alias, automatic.size(), automatic.begin());
    const ShortName shortName = plain.value_or(options.alias.value_or(automatic));
    std::copy(shortName.begin(), shortName.end(), node.entry.begin());
    std::vector<Slot> slots;
    if (!plain || options.alwaysLong) {
        slots = MakeLongEntries(name, NameChecksum(node.entry.data()));
    }
    slots.push_back(node.entry);
    tree[JoinPath(Path(parent), name)] = std::move(node);
    return AddRawSlots(parent, slots);
}

uint64_t ImageBuilder::AddFile(size_t parent, const std::u16string& name,
                               const std::vector<uint8_t>& content, const EntryOptions& options) {
    const std::vector<uint32_t> chain = TakeChain(options, content.size());
    for (size_t done = 0, i = 0; done < content.size() && i < chain.size(); ++i) {
        const size_t part = std::min<size_t>(geometry.clusterBytes, content.size() - done);
        disk.Write(geometry.ClusterPosition(chain[i]), &content[done], part);
        done += part;
    }
    const auto size = options.size.value_or(static_cast<uint32_t>(content.size()));
    return AddEntry(parent, name, options,
                    {MakeShortEntry({}, options.attributes, chain.empty() ? 0 : chain.front(), size,
                                    options.times),
                     content});
}

size_t ImageBuilder::AddDirectory(size_t parent, const std::u16string& name,
                                  const EntryOptions& options) {
    const std::vector<uint32_t> chain = TakeChain(options, 1);
    for (const uint32_t cluster : chain) {
        disk.Fill(geometry.ClusterPosition(cluster), geometry.clusterBytes, 0);
    }
    const uint32_t first = chain.front();
    const auto attributes = static_cast<uint8_t>((options.attributes & ~0x20) | 0x10);
    AddEntry(parent, name, options,
             {MakeShortEntry({}, attributes, first, options.size.value_or(0), options.times), {}});
    directories.push_back({JoinPath(Path(parent), name), chain});
    const uint32_t above = parent == root ? 0 : FirstCluster(parent);
    AddRawSlots(directories.size() - 1,
                {MakeShortEntry(PadShortName(u".", u""), 0x10, first, 0, options.times),
                 MakeShortEntry(PadShortName(u"..", u""), 0x10, above, 0, options.times)});
    return directories.size() - 1;
}

}  // namespace fatvol::test
