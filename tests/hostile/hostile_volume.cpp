#include "hostile_volume.h"

#include <algorithm>

#include "support/image_builder.h"

namespace fatvol::test {
namespace {

constexpr VolumeLayout layouts[] = {
    {.fatType = 12, .bytesPerSector = 128, .clusterCount = 100, .rootEntryCount = 16},
    {.fatType = 12, .clusterCount = 300, .fatCount = 1, .rootEntryCount = 64},
    {.fatType = 12, .bytesPerSector = 2048, .sectorsPerCluster = 4, .clusterCount = 60},
    {.fatType = 16, .clusterCount = 4087, .rootEntryCount = 32},
    {.fatType = 32, .clusterCount = 120},
    {.fatType = 32, .bytesPerSector = 256, .sectorsPerCluster = 2, .clusterCount = 400},
    {.fatType = 32, .bytesPerSector = 4096, .sectorsPerCluster = 8, .clusterCount = 80},
    {},  // the raw image
    {.fatType = 32, .bytesPerSector = 4096, .sectorsPerCluster = 128, .clusterCount = 60},
    {.fatType = 32, .bytesPerSector = 4096, .sectorsPerCluster = 128, .clusterCount = 8000}};
static_assert(std::size(layouts) == volumeKinds);

// A sound volume, and where its directories have their slots.
struct Template {
    explicit Template(const VolumeLayout& layout) : builder(layout) {
        EntryOptions broken;
        broken.clusters = {30, 40, 31, 41, 32};
        builder.AddVolumeLabel(*PlainShortName(u"LABEL"));
        builder.AddDeletedSlots(builder.root, 2);
        const size_t d = builder.AddDirectory(builder.root, entryNames[1]);
        const size_t inner = builder.AddDirectory(d, entryNames[1]);
        const size_t e = builder.AddDirectory(builder.root, entryNames[2]);
        for (const size_t directory : {builder.root, d, inner}) {
            builder.AddFile(directory, entryNames[0], std::vector<uint8_t>(700, 'f'));
            builder.AddFile(directory, entryNames[4], std::vector<uint8_t>(10, 'n'));
        }
        builder.AddFile(inner, entryNames[5]);
        builder.AddFile(builder.root, entryNames[3],
                        std::vector<uint8_t>(5 * builder.geometry.clusterBytes - 7, 'b'), broken);
        for (const size_t directory : {builder.root, d, inner, e}) {
            const uint64_t bytes =
                directory == 0 && layout.fatType != 32 ? 512 : builder.geometry.clusterBytes;
            for (uint32_t slot = 0; slot < std::min<uint64_t>(bytes / 32, 16); ++slot) {
                slots.push_back(builder.SlotPosition(directory, slot));
            }
        }
    }

    ImageBuilder builder;
    std::vector<uint64_t> slots;
};

// A directory with more slots than there may be, one of which is the directory itself.
void AddEndlessDirectory(ImageBuilder& builder) {
    const uint32_t first = 50, perCluster = builder.geometry.clusterBytes / 32;
    EntryOptions options;
    for (uint32_t i = 0; i < std::min(builder.geometry.clusterCount - 50, 4000U); ++i) {
        options.clusters.push_back(first + i);
    }
    builder.AddDirectory(builder.root, u"EMPTY", options);
    for (uint32_t slot = 2; slot < 6 * perCluster; ++slot) {
        ShortName shortName = *PlainShortName(u"F0000000.Z");
        for (uint32_t digit = 7, rest = slot; rest != 0; rest /= 10) {
            shortName[digit--] = static_cast<uint8_t>('0' + rest % 10);
        }
        const bool isSelf = slot % 1000 == 2;
        const Slot entry = isSelf ? MakeShortEntry(*PlainShortName(u"EMPTY"), 0x10, first, 0)
                                  : MakeShortEntry(shortName, 0x20, slot % 60, slot);
        builder.disk.Write(builder.geometry.ClusterPosition(first) + slot * 32, entry.data(), 32);
    }
}

const Template& TemplateOf(size_t kind) {
    static std::unique_ptr<Template> templates[volumeKinds];
    if (!templates[kind]) {
        templates[kind] = std::make_unique<Template>(layouts[kind]);
        if (kind >= smallVolumeKinds) {
            AddEndlessDirectory(templates[kind]->builder);
        }
    }
    return *templates[kind];
}

// What a mutation works on.
struct Target {
    MemoryDisk& disk;
    const Geometry& geometry;
    const std::vector<uint64_t>& slots;
    uint64_t endBytes;

    uint64_t Slot(Input& input) const { return slots[input.Below(slots.size())]; }
    uint32_t Cluster(Input& input) const {
        const uint32_t selector = input.Byte();
        return 2 + (selector < 0xC0 ? selector % 64 : static_cast<uint32_t>(input.Take(2))) %
                       geometry.clusterCount;
    }
};

// At and next to what limits there are, next to what stood there, or anything.
uint32_t Value(Input& input, const Target& target, uint32_t current) {
    const uint32_t count = target.geometry.clusterCount, bad = target.geometry.badMark;
    const uint32_t limits[] = {0,         1,       2,          3,          4,         0x7F,
                               0x80,      0xFF,    0x100,      0x1000,     0x7FFF,    0x8000,
                               0xFFFF,    0x10000, 0x7FFFFFFF, 1U << 31,   ~0U,       ~0U - 1,
                               count - 1, count,   count + 1,  count + 2,  count + 3, bad - 1,
                               bad,       bad + 1, bad + 8,    0x0FFFFFFF, 4086,      65525};
    const uint32_t selector = input.Byte();
    if (selector < 0x80) {
        return limits[selector % std::size(limits)];
    }
    return selector < 0xA0   ? current + selector - 0x90
           : selector < 0xE0 ? target.Cluster(input)
                             : static_cast<uint32_t>(input.Take(4));
}

void PutBytes(const Target& target, uint64_t position, uint32_t value, uint32_t size) {
    uint8_t bytes[4];
    Put32(bytes, value);
    target.disk.Write(position, bytes, size);
}

void MutateBootSector(Input& input, const Target& target) {
    static constexpr struct {
        uint32_t offset, size;
    } fields[] = {{0, 1},  {11, 2}, {13, 1}, {14, 2}, {16, 1}, {17, 2}, {19, 2}, {21, 1},
                  {22, 2}, {32, 4}, {36, 4}, {40, 2}, {42, 2}, {44, 4}, {48, 2}, {510, 2}};
    const auto& [offset, size] = input.Pick(fields);
    std::vector<uint8_t> boot = target.disk.Read(0, 512);
    boot.resize(516);
    PutBytes(target, offset, Value(input, target, Get32(&boot[offset])), size);
}

void MutateLink(Input& input, const Target& target) {
    const uint32_t cluster = target.Cluster(input);
    const uint32_t value = Value(input, target, cluster);
    for (uint32_t copy = 0; copy < std::min(target.geometry.fatCount, 2U); ++copy) {
        PutFatEntry(target.disk, target.geometry, cluster, value, copy);
    }
}

void MutateSlotByte(Input& input, const Target& target) {
    const uint64_t slot = target.Slot(input);
    PutBytes(target, slot + input.Below(32), input.Byte(), 1);
}

void MutateSlotCluster(Input& input, const Target& target) {
    const uint64_t slot = target.Slot(input);
    const uint32_t value = Value(input, target, 2);
    PutBytes(target, slot + 20, value >> 16, 2);
    PutBytes(target, slot + 26, value, 2);
}

void MutateSlotSize(Input& input, const Target& target) {
    const uint64_t slot = target.Slot(input);
    PutBytes(target, slot + 28, Value(input, target, Get32(target.disk.Read(slot + 28, 4).data())),
             4);
}

// An entry of a name that the calls ask for: file or directory, of any cluster.
void PutEntry(Input& input, const Target& target) {
    const uint64_t slot = target.Slot(input);
    const auto name = *PlainShortName(entryNames[input.Below(4)]);
    const uint8_t attributes = input.Byte();
    const uint32_t cluster = Value(input, target, 2);
    const auto entry = MakeShortEntry(name, attributes, cluster, Value(input, target, 1));
    target.disk.Write(slot, entry.data(), entry.size());
}

// A run of long-name entries with, it may be, one byte of it wrong or one entry missing.
void PutLongName(Input& input, const Target& target) {
    uint64_t slot = target.Slot(input);
    const ShortName name = *PlainShortName(u"ALIAS.TXT");
    const uint32_t length = input.Byte() % 64 == 0 ? 260 : 1 + input.Byte() % 60;
    auto run = MakeLongEntries(std::u16string(length, u'l'), NameChecksum(name.data()));
    run.push_back(MakeShortEntry(name, 0x20, target.Cluster(input), 5));
    auto& spoilt = run[input.Below(run.size())];
    spoilt[input.Below(32)] ^= input.Byte();
    const size_t omitted = input.Byte();
    for (size_t i = 0; i < run.size() && slot + 32 <= target.endBytes; ++i) {
        if (i != omitted) {
            target.disk.Write(slot, run[i].data(), 32);
            slot += 32;
        }
    }
}

void PutRawBytes(Input& input, const Target& target) {
    const uint64_t position = input.Take(3) % (target.endBytes - 8);
    const auto bytes = input.Span(input.Below(8));
    target.disk.Write(position, bytes.data(), bytes.size());
}

// A chain of consecutive clusters, in which an entry is repeated over and over.
void PutChain(Input& input, const Target& target) {
    const uint32_t first = target.Cluster(input);
    const uint32_t last =
        first + std::min<uint32_t>(input.Byte(), target.geometry.clusterCount + 1 - first);
    const auto entry = target.disk.Read(target.Slot(input), 32);
    for (uint32_t cluster = first; cluster <= last; ++cluster) {
        const uint32_t next = cluster < last ? cluster + 1 : Value(input, target, 0x0FFFFFFF);
        PutFatEntry(target.disk, target.geometry, cluster, next, 0);
        const uint64_t position = target.geometry.ClusterPosition(cluster);
        for (uint32_t at = 0; at < std::min(target.geometry.clusterBytes, 512U); at += 32) {
            target.disk.Write(position + at, entry.data(), 32);
        }
    }
}

using Mutate = void (*)(Input&, const Target&);
constexpr Mutate mutateFunctions[] = {
    MutateBootSector, MutateLink,  MutateSlotByte, MutateSlotCluster, MutateSlotSize,
    PutEntry,         PutLongName, PutRawBytes,    PutChain,          MutateLink};

// The volume is as large as it says, though nothing may be there beyond its first `endBytes`.
HostileVolume Finish(const MemoryDisk& image, uint64_t endBytes, uint32_t mutations) {
    const Geometry geometry = ReadGeometry(image);
    const uint64_t claimed = uint64_t{geometry.totalSectors} * geometry.bytesPerSector;
    auto disk =
        std::make_unique<HostileDisk>(std::max<uint64_t>(claimed, 2048), endBytes, image.fillByte);
    disk->Restore(image.Snapshot());
    disk->dataPosition = geometry.dataPosition;
    disk->clusterBytes = geometry.clusterBytes;
    return {std::move(disk), std::max(geometry.clusterBytes, 128U), mutations};
}

HostileVolume MakeRawVolume(Input& input) {
    MemoryDisk image(2048 + 128 * input.Take(2));
    const auto bytes = input.Span(std::min<uint64_t>(input.Take(2), image.sizeBytes));
    image.Write(0, bytes.data(), bytes.size());
    return Finish(image, image.sizeBytes, 1);
}

}  // namespace

HostileVolume MakeHostileVolume(size_t kind, Input& input) {
    if (kind == smallVolumeKinds - 1) {
        return MakeRawVolume(input);
    }
    const Template& source = TemplateOf(kind);
    MemoryDisk image(source.builder.disk.sizeBytes, source.builder.disk.fillByte);
    image.Restore(source.builder.disk.Snapshot());
    const Target target{image, source.builder.geometry, source.slots, image.sizeBytes};
    const uint8_t number = input.Byte();
    const uint32_t mutations = number % (number < 0xC0 ? 5U : 16U);
    for (uint32_t i = 0; i < mutations; ++i) {
        input.Pick(mutateFunctions)(input, target);
    }
    const uint32_t cut = mutations != 0 ? input.Byte() : 0;
    const uint64_t end = cut < 0xF0 ? image.sizeBytes : image.sizeBytes * (cut - 0xF0) / 16;
    return Finish(image, end, mutations + (kind < smallVolumeKinds ? 0 : 1));
}

}  // namespace fatvol::test
