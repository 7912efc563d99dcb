#include "hostile_volume.h"

#include "scenario.h"
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
struct Template : ImageBuilder {
    explicit Template(size_t kind) : ImageBuilder(layouts[kind]) {
        AddVolumeLabel(*PlainShortName(u"LABEL"));
        AddDeletedSlots(root, 2);
        const size_t d = AddDirectory(root, u"D");
        const size_t inner = AddDirectory(d, u"D");
        const size_t e = AddDirectory(root, u"E");
        for (const size_t directory : {root, d, inner}) {
            AddFile(directory, entryNames[0], std::vector<uint8_t>(700, 'f'));
            AddFile(directory, entryNames[4], std::vector<uint8_t>(10, 'n'));
        }
        EntryOptions broken;
        broken.clusters = {30, 40, 31, 41, 32};
        AddFile(root, u"BIG", std::vector<uint8_t>(5 * geometry.clusterBytes - 7, 'b'), broken);
        for (const size_t directory : {root, d, inner, e}) {
            const bool isFixed = FirstCluster(directory) == 0;
            const uint32_t count = isFixed ? 16 : std::min(geometry.clusterBytes / 32, 16U);
            for (uint32_t slot = 0; slot < count; ++slot) {
                slots.push_back(SlotPosition(directory, slot));
            }
        }
        if (kind >= smallVolumeKinds) {
            AddEndlessDirectory();
        }
    }

    // A directory with more slots than there may be, some of which are the directory itself.
    void AddEndlessDirectory() {
        EntryOptions options;
        for (uint32_t i = 50; i < std::min(geometry.clusterCount, 4050U); ++i) {
            options.clusters.push_back(i);
        }
        const size_t directory = AddDirectory(root, u"EMPTY", options);
        for (uint32_t slot = 2; slot < 6 * geometry.clusterBytes / 32; ++slot) {
            const std::string number = std::to_string(10'000'000 + slot);
            const std::u16string name(number.begin(), number.end());
            const bool isItself = slot % 1000 == 2;
            AddRawSlots(directory,
                        {isItself ? MakeShortEntry(*PlainShortName(u"EMPTY"), 0x10, 50, 0)
                                  : MakeShortEntry(*PlainShortName(name), 0x20, slot % 60, slot)});
        }
    }

    std::vector<uint64_t> slots;
};

const Template& TemplateOf(size_t kind) {
    static std::optional<Template> templates[volumeKinds];
    return templates[kind] ? *templates[kind] : templates[kind].emplace(kind);
}

struct Mutator {
    Input& input;
    MemoryDisk& disk;
    const Template& source;
    const Geometry& geometry = source.geometry;

    uint32_t Cluster() {
        const uint32_t number = input.Byte();
        return 2 + (number < 0xC0 ? number % 64 : input.Take(2)) % geometry.clusterCount;
    }

    // At and next to what limits there are, next to what stood there, or anything.
    uint32_t Value(uint32_t current) {
        const uint32_t count = geometry.clusterCount, bad = geometry.badMark;
        const uint32_t limits[] = {0,       1,         2,          3,         4,       0x7F,
                                   0x80,    0xFF,      0x100,      0x1000,    0x7FFF,  0x8000,
                                   0xFFFF,  65536,     1U << 31,   ~0U,       ~0U - 1, count - 1,
                                   count,   count + 1, count + 2,  count + 3, bad - 1, bad,
                                   bad + 1, bad + 8,   0x0FFFFFFF, 4086,      65525,   0x7FFFFFFF};
        const uint32_t number = input.Byte();
        return number < 0x80   ? limits[number % std::size(limits)]
               : number < 0xA0 ? current + number - 0x90
               : number < 0xE0 ? Cluster()
                               : input.Take(4);
    }

    void Put(uint64_t position, uint32_t value, uint32_t size) {
        uint8_t bytes[4];
        Put32(bytes, value);
        disk.Write(position, bytes, size);
    }

    void PutValue(uint64_t position, uint32_t size) {
        Put(position, Value(Get32(disk.Read(position, 4).data())), size);
    }

    // A run of long-name entries with one byte of it wrong and, it may be, one entry missing.
    void PutLongName(uint64_t slot) {
        const ShortName name = *PlainShortName(u"ALIAS.TXT");
        const uint32_t number = input.Byte();
        const std::u16string longName(number < 0xF0 ? 1 + number % 60 : 260, u'l');
        auto run = MakeLongEntries(longName, NameChecksum(name.data()));
        run.push_back(MakeShortEntry(name, 0x20, Cluster(), 5));
        auto& spoilt = run[input.Below(run.size())];
        spoilt[input.Below(32)] ^= input.Byte();
        const size_t omitted = input.Byte();
        for (size_t i = 0; i < run.size() && slot + 32 <= disk.sizeBytes; ++i) {
            if (i != omitted) {
                disk.Write(slot, run[i].data(), 32);
                slot += 32;
            }
        }
    }

    // A chain of consecutive clusters, in which an entry is repeated over and over.
    void PutChain(uint64_t slot) {
        const uint32_t first = Cluster();
        const uint32_t last = std::min(first + input.Byte(), geometry.clusterCount + 1);
        const auto entry = disk.Read(slot, 32);
        for (uint32_t cluster = first; cluster <= last; ++cluster) {
            const uint32_t next = cluster < last ? cluster + 1 : Value(0x0FFFFFFF);
            PutFatEntry(disk, geometry, cluster, next, 0);
            for (uint32_t at = 0; at < std::min(geometry.clusterBytes, 512U); at += 32) {
                disk.Write(geometry.ClusterPosition(cluster) + at, entry.data(), 32);
            }
        }
    }

    void Mutate() {
        static constexpr uint32_t fields[][2] = {
            {0, 1},  {11, 2}, {13, 1}, {14, 2}, {16, 1}, {17, 2}, {19, 2}, {21, 1},
            {22, 2}, {32, 4}, {36, 4}, {40, 2}, {42, 2}, {44, 4}, {48, 2}, {508, 4}};
        const size_t kind = input.Below(10);
        const uint64_t slot = input.Pick(source.slots);
        if (kind == 0) {
            const auto& [offset, size] = input.Pick(fields);
            PutValue(offset, size);
        } else if (kind <= 2) {
            const uint32_t cluster = Cluster(), value = Value(cluster);
            for (uint32_t copy = 0; copy < geometry.fatCount; ++copy) {
                PutFatEntry(disk, geometry, cluster, value, copy);
            }
        } else if (kind == 3) {
            const size_t offset = input.Below(32);
            Put(slot + offset, input.Byte(), 1);
        } else if (kind == 4) {
            const uint32_t cluster = Value(2);
            Put(slot + 20, cluster >> 16, 2);
            Put(slot + 26, cluster, 2);
        } else if (kind == 5) {
            PutValue(slot + 28, 4);
        } else if (kind == 6) {
            const ShortName name = *PlainShortName(entryNames[input.Below(4)]);
            const uint8_t attributes = input.Byte();
            const uint32_t cluster = Value(2);
            const auto entry = MakeShortEntry(name, attributes, cluster, Value(1));
            disk.Write(slot, entry.data(), entry.size());
        } else if (kind == 7) {
            PutLongName(slot);
        } else if (kind == 8) {
            const uint64_t position = input.Take(3) % (disk.sizeBytes - 8);
            const auto bytes = input.Span(input.Below(8));
            disk.Write(position, bytes.data(), bytes.size());
        } else {
            PutChain(slot);
        }
    }
};

}  // namespace

std::unique_ptr<HostileDisk> MakeHostileVolume(size_t kind, Input& input) {
    const bool isRaw = kind == smallVolumeKinds - 1;
    const Template& source = TemplateOf(kind);
    MemoryDisk image(isRaw ? 2048 + 128 * input.Take(2) : source.disk.sizeBytes);
    uint32_t mutations = 0, cut = 0;
    if (isRaw) {
        const auto bytes = input.Span(std::min<uint64_t>(input.Take(2), image.sizeBytes));
        image.Write(0, bytes.data(), bytes.size());
    } else {
        image.Restore(source.disk.Snapshot());
        const uint8_t number = input.Byte();
        mutations = number % (number < 0xC0 ? 5U : 16U);
        for (uint32_t i = 0; i < mutations; ++i) {
            Mutator{input, image, source}.Mutate();
        }
        cut = mutations != 0 ? input.Byte() : 0;
    }
    const Geometry geometry = ReadGeometry(image);
    const uint64_t claimed = uint64_t{geometry.totalSectors} * geometry.bytesPerSector;
    auto disk = std::make_unique<HostileDisk>(std::max<uint64_t>(claimed, 2048));
    disk->Restore(image.Snapshot());
    disk->dataPosition = geometry.dataPosition;
    disk->clusterBytes = geometry.clusterBytes;
    disk->imageBytes = image.sizeBytes;
    disk->endBytes = cut < 0xF0 ? image.sizeBytes : image.sizeBytes * (cut - 0xF0) / 16;
    disk->isSound = mutations == 0 && kind < smallVolumeKinds - 1;
    return disk;
}

}  // namespace fatvol::test
