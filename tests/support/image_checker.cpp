#include "image_checker.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <set>
#include <utility>

#include "image_builder.h"

namespace fatvol::test {

namespace {

constexpr uint64_t maxDirectoryBytes = 65536 * 32;
constexpr uint64_t fatChunk = 98304;  // bytes; whole entries of every type

// A directory still to visit, with what its dot entries must hold.
struct Visit {
    std::u16string path;
    uint32_t firstCluster;
    uint32_t parentCluster;
    bool isRoot;
};

struct Walker {
    const MemoryDisk& disk;
    const uint64_t contentLimit;
    const Geometry geometry = ReadGeometry(disk);
    ImageReport report = {};
    Tree tree = {};
    std::vector<bool> used = {};
    std::vector<Visit> pending = {};
    // Of the directory being visited:
    std::u16string directory = {};
    std::vector<Slot> run = {};  // of long-name entries, as far as they have been met
    std::set<std::u16string> names = {};
    std::set<std::u16string> shortNames = {};

    void Expect(bool isSound, const std::u16string& path, const std::string& fault) {
        if (!isSound && report.faults.size() < 100) {
            report.faults.push_back(Printable(path) + ": " + fault);
        }
    }

    void Run() {
        CheckBoot();
        if (report.faults.empty()) {
            used.resize(size_t{geometry.clusterCount} + 2);
            pending.push_back({u"", geometry.rootCluster, 0, true});
            while (!pending.empty()) {
                const Visit visit = std::move(pending.back());
                pending.pop_back();
                VisitDirectory(visit);
            }
            CheckFats();
            CheckFsInfo();
        }
    }

    void CheckBoot() {
        const Geometry& g = geometry;
        const uint32_t sector = g.bytesPerSector, cluster = g.sectorsPerCluster;
        Expect(Get16(&disk.Read(510, 2)[0]) == 0xAA55 && std::has_single_bit(sector) &&
                   sector >= 128 && std::has_single_bit(cluster) && cluster <= 128 &&
                   g.reservedSectors > g.fsInfoSector && g.clusterCount > 0 &&
                   g.fatBytes * 8 / g.fatType >= uint64_t{g.clusterCount} + 2 &&
                   uint64_t{g.totalSectors} * sector <= disk.sizeBytes &&
                   (g.fatType != 32 || g.HasCluster(g.rootCluster)),
               u"boot", "impossible geometry");
    }

    void CheckFats() {
        const uint64_t perChunk = fatChunk * 8 / geometry.fatType;
        for (uint64_t at = 0, base = 0; at < geometry.fatBytes; at += fatChunk, base += perChunk) {
            const uint64_t part = std::min(fatChunk, geometry.fatBytes - at);
            std::vector<uint8_t> fat = disk.Read(geometry.FatPosition(0) + at, part);
            report.areFatsDifferent |=
                geometry.fatCount > 1 && fat != disk.Read(geometry.FatPosition(1) + at, part);
            fat.resize(part + 4);
            const uint64_t end = std::min(perChunk, std::max(used.size(), base) - base);
            for (uint32_t i = base == 0 ? 2 : 0; i < end; ++i) {
                const uint32_t value = DecodeFatEntry(fat.data(), geometry.fatType, i);
                report.freeClusters += value == 0;
                report.lostClusters += value != 0 && value != geometry.badMark && !used[base + i];
            }
        }
        const uint32_t first = (geometry.badMark & ~0xFFU) | geometry.media;
        Expect(GetFatEntry(disk, geometry, 0) == first, u"FAT", "entry 0");
        // The flags for a clean volume and for no disk errors may be clear.
        const uint32_t flags =
            geometry.fatType == 12 ? 0 : 3U << (geometry.fatType == 16 ? 14 : 26);
        Expect((GetFatEntry(disk, geometry, 1) | flags) > geometry.badMark, u"FAT", "entry 1");
    }

    void CheckFsInfo() {
        if (geometry.fsInfoSector != 0) {
            const auto info =
                disk.Read(uint64_t{geometry.fsInfoSector} * geometry.bytesPerSector, 512);
            const uint32_t count = Get32(&info[488]), next = Get32(&info[492]);
            Expect(Get32(&info[0]) == 0x41615252 && Get32(&info[484]) == 0x61417272 &&
                       Get32(&info[508]) == 0xAA550000 &&
                       (next == 0xFFFFFFFF || geometry.HasCluster(next)),
                   u"FSInfo", "signature or next free cluster");
            report.isFreeCountWrong = count != 0xFFFFFFFF && count != report.freeClusters;
        }
    }

    // The clusters of a chain. One that runs into clusters met before is followed no further than
    // the bytes asked for, which ends loops.
    std::vector<uint32_t> FollowChain(uint32_t first, uint64_t bytes, const std::u16string& path) {
        std::vector<uint32_t> chain;
        bool isShared = false;
        for (uint32_t cluster = first;
             first != 0 && (chain.empty() || cluster <= geometry.badMark);) {
            if (!geometry.HasCluster(cluster)) {
                Expect(false, path, "chain leads to cluster " + std::to_string(cluster));
                break;
            }
            if (used[cluster] && !isShared) {
                Expect(false, path, "shares cluster " + std::to_string(cluster));
                isShared = true;
            }
            if (isShared && chain.size() * uint64_t{geometry.clusterBytes} >= bytes) {
                break;
            }
            used[cluster] = true;
            chain.push_back(cluster);
            cluster = GetFatEntry(disk, geometry, cluster);
        }
        return chain;
    }

    std::vector<uint8_t> ReadChain(const std::vector<uint32_t>& chain, uint64_t limit) const {
        const uint64_t cluster = geometry.clusterBytes;
        std::vector<uint8_t> data(std::min(limit, chain.size() * cluster));
        for (uint64_t done = 0; done < data.size(); done += cluster) {
            disk.Read(geometry.ClusterPosition(chain[done / cluster]), &data[done],
                      std::min(cluster, data.size() - done));
        }
        return data;
    }

    void VisitDirectory(const Visit& visit) {
        directory = visit.path;
        names.clear();
        shortNames.clear();
        std::vector<uint8_t> data;
        if (visit.isRoot && geometry.fatType != 32) {
            data = disk.Read(geometry.rootPosition, geometry.rootBytes);
        } else {
            const auto chain = FollowChain(visit.firstCluster, maxDirectoryBytes, visit.path);
            const uint64_t bytes = chain.size() * uint64_t{geometry.clusterBytes};
            Expect(bytes > 0 && bytes <= maxDirectoryBytes, visit.path, "impossible size");
            data = ReadChain(chain, maxDirectoryBytes);
        }
        size_t at = 0;
        if (!visit.isRoot && !data.empty()) {
            CheckDotEntry(&data[0], ".          ", visit.firstCluster);
            CheckDotEntry(&data[32], "..         ", visit.parentCluster);
            at = data[0] != '.' ? 0 : data[32] != '.' ? 32 : 64;
        }
        for (; at < data.size() && data[at] != 0; at += 32) {
            VisitSlot(visit, &data[at]);
        }
        DropRun();
    }

    void CheckDotEntry(const uint8_t* slot, const char* name, uint32_t cluster) {
        TreeNode node{};
        std::copy_n(slot, 32, node.entry.begin());
        Expect(std::memcmp(slot, name, 11) == 0 && node.Attributes() == 0x10 && node.Size() == 0 &&
                   node.FirstCluster() == cluster,
               directory, "dot entry");
    }

    void VisitSlot(const Visit& visit, const uint8_t* slot) {
        if (slot[0] == 0xE5) {
            DropRun();
        } else if (slot[11] == 0x0F) {
            if ((slot[0] & 0x40) != 0) {
                DropRun();
            }
            std::copy_n(slot, 32, run.emplace_back().begin());
        } else if ((slot[11] & 0x08) != 0) {
            DropRun();
            Expect(visit.isRoot && report.volumeLabel.empty(), directory, "stray volume label");
            report.volumeLabel.assign(slot, slot + 11);
        } else {
            VisitEntry(visit, slot);
        }
    }

    void DropRun() {
        Expect(run.empty(), directory, "long-name entries without a short entry");
        run.clear();
    }

    // The long name in front of a short entry; empty when there is none that belongs to it.
    std::u16string TakeLongName(const uint8_t* shortName) {
        std::u16string units;
        for (const Slot& slot : run) {
            std::u16string part;
            for (const int offset : longNameOffsets) {
                part += static_cast<char16_t>(Get16(slot.data() + offset));
            }
            units.insert(0, part);
        }
        const std::u16string name = units.substr(0, units.find(u'\0'));
        const bool fits = run == MakeLongEntries(name, NameChecksum(shortName));
        Expect(fits, directory, "long name malformed, or of another entry");
        run.clear();
        return fits ? name : u"";
    }

    void VisitEntry(const Visit& visit, const uint8_t* slot) {
        TreeNode node{};
        std::copy_n(slot, 32, node.entry.begin());
        const std::u16string shortName = DisplayName(slot), longName = TakeLongName(slot);
        const std::u16string name = longName.empty() ? shortName : longName;
        const std::u16string path = JoinPath(directory, name);
        CheckShortName(slot, path);
        Expect(names.insert(FoldAscii(name)).second, path, "name twice");
        if (!shortNames.insert(shortName).second) {
            report.duplicateShortNames.push_back(path);
        }
        const uint32_t first = node.FirstCluster();
        if (node.IsDirectory()) {
            Expect(node.Size() == 0, path, "directory with a size");
            if (geometry.HasCluster(first) && used[first]) {
                Expect(false, path, "shares cluster " + std::to_string(first));
            } else if (slot[0] != '.') {
                pending.push_back({path, first, visit.isRoot ? 0 : visit.firstCluster, false});
            }
        } else {
            const auto chain = FollowChain(first, node.Size(), path);
            const uint64_t cluster = geometry.clusterBytes;
            Expect(chain.size() == (node.Size() + cluster - 1) / cluster, path,
                   "size " + std::to_string(node.Size()) + " in " + std::to_string(chain.size()) +
                       " clusters");
            node.content = ReadChain(chain, std::min<uint64_t>(node.Size(), contentLimit));
        }
        tree.emplace(path, std::move(node));
    }

    void CheckShortName(const uint8_t* slot, const std::u16string& path) {
        const bool isRefused = std::any_of(slot + (slot[0] == 0x05), slot + 11, [](uint8_t byte) {
            return byte < 0x20 || byte == 0x7F || (byte >= 'a' && byte <= 'z') ||
                   std::strchr("\"*+,./:;<=>?[\\]|", byte) != nullptr;
        });
        Expect(!isRefused && slot[0] != ' ', path, "refused character in short name");
    }
};

}  // namespace

std::string ImageReport::Text() const {
    std::string text;
    for (const std::string& fault : faults) {
        text += fault + "\n";
    }
    text += lostClusters == 0 ? "" : std::to_string(lostClusters) + " lost clusters\n";
    text += duplicateShortNames.empty() ? "" : "short name twice\n";
    text += areFatsDifferent ? "FATs differ\n" : "";
    return text + (isFreeCountWrong ? "FSInfo free count\n" : "");
}

ImageReport CheckImage(const MemoryDisk& disk) {
    Walker walker{disk, 0};
    walker.Run();
    return std::move(walker.report);
}

Tree ReadTree(const MemoryDisk& disk, uint64_t contentLimit) {
    Walker walker{disk, contentLimit};
    walker.Run();
    return std::move(walker.tree);
}

}  // namespace fatvol::test
