// Power is cut at every write of a workload: after one sector of it, in a full run after each that
// changes something, and with some of the writes since the last flush missing.
#include <cstring>
#include <iostream>
#include <numeric>

#include "workload.h"

namespace fatvol::test {
namespace {

template <class Action>
void ForChain(const MemoryDisk& disk, const Geometry& geometry, uint32_t first, Action action) {
    uint32_t left = geometry.clusterCount;  // chains of changed objects may have loops
    for (uint32_t at = first; geometry.HasCluster(at) && left > 0; --left) {
        action(at);
        at = test::GetFatEntry(disk, geometry, at);
    }
}

bool IsAtOrBelow(const std::u16string& path, const std::u16string& directory) {
    return path == directory || path.starts_with(directory + u"\\");
}

// What was there at the last flush, what has been changed since, and the findings of all cuts.
struct Judge {
    const bool isInOrder;
    Tree flushed = {};
    std::vector<const std::u16string*> ownerOf = {};           // by cluster
    std::set<std::u16string> changed = {};                     // with all below
    std::map<std::u16string, std::u16string> shortPaths = {};  // of what was there
    // The other way round, in directories whose entries may have been moved together.
    std::map<std::u16string, std::u16string> longPaths = {};
    uint64_t cuts = 0, lostClusters = 0, cutsWithSharing = 0, cutsWithoutRoot = 0;

    // Its name, or one above it, may have been moved together with others.
    bool IsMoved(const std::u16string& path) const {
        return !path.empty() && (longPaths.contains(shortPaths.at(path)) || IsMoved(Parent(path)));
    }
    // What a directory shows that was made or deleted since may be left over from others.
    bool IsBelowChanged(const std::u16string& path) const {
        return !path.empty() && (changed.contains(Parent(path)) || IsBelowChanged(Parent(path)));
    }
    // Not touched since; writes out of order may lose entries that were moved together.
    bool IsPromised(const std::u16string& path) const {
        return (isInOrder || !IsMoved(path)) &&
               std::none_of(changed.begin(), changed.end(),
                            [&](const std::u16string& each) { return IsAtOrBelow(path, each); });
    }

    // After a flush that was true everything is there, whole.
    void BeginAfterFlush(const MemoryDisk& disk, Tree expected) {
        const Tree tree = FoldedTree(disk);
        const Geometry geometry = ReadGeometry(disk);
        flushed = std::move(expected);
        shortPaths.clear();
        longPaths.clear();
        changed.clear();
        ownerOf.assign(geometry.clusterCount + 2, nullptr);
        for (const auto& [path, node] : tree) {
            const auto kept = shortPaths.emplace(
                path, JoinPath(Parent(path), Fold(DisplayName(node.entry.data()))));
            const std::u16string* const owner = &kept.first->first;
            ForChain(disk, geometry, node.FirstCluster(),
                     [&](uint32_t cluster) { ownerOf[cluster] = owner; });
        }
    }

    // What a step changes; where that needs entries, others may have been moved together.
    void Note(const std::set<std::u16string>& touched, const std::set<std::u16string>& placed) {
        std::set<std::u16string> directories;
        changed.insert(touched.begin(), touched.end());
        for (std::u16string at : placed) {
            do {
                at = Parent(at);
                directories.insert(at);
            } while (!at.empty() && !flushed.contains(at));  // it is new, too
        }
        if (!isInOrder) {  // the last step of growing needs the order
            changed.insert(directories.begin(), directories.end());
        }
        for (const auto& [longPath, shortPath] : shortPaths) {
            if (directories.contains(Parent(longPath))) {
                longPaths[shortPath] = longPath;
            }
        }
    }

    // A cut while entries are moved may break a long name apart, which leaves the short one.
    Tree TreeByLongNames(const MemoryDisk& disk) const {
        Tree tree;
        for (auto& [path, node] : FoldedTree(disk)) {
            std::u16string known;
            for (size_t at = 0, end = 0; end != path.npos; at = end + 1) {
                end = path.find(u'\\', at);
                known = JoinPath(known, path.substr(at, end - at));
                const auto found = longPaths.find(known);
                known = found == longPaths.end() ? known : found->second;
            }
            tree.try_emplace(known, std::move(node));
        }
        return tree;
    }

    void JudgeCut(MemoryDisk& disk) {
        const ImageReport report = CheckImage(disk);
        const bool isRootBroken = ("\n" + report.Text()).find("\n: chain") != std::string::npos;
        ++cuts;
        if (isRootBroken && !isInOrder) {
            ++cutsWithoutRoot;
            return;
        }
        const Geometry geometry = ReadGeometry(disk);
        const Tree tree = TreeByLongNames(disk);
        const Mounted mounted(disk);
        for (const auto& [path, node] : flushed) {
            const auto found = tree.find(path);
            const bool isLost = found == tree.end() || !AreAlike(found->second, node);
            const bool isPromised = IsPromised(path);
            EXPECT_FALSE(isPromised && isLost) << Printable(path) << " is damaged";
            EXPECT_FALSE(isPromised && !IsMoved(path) && !CanOpen(path)) << Printable(path);
        }
        for (const auto& [path, node] : tree) {
            const std::u16string* const sharer = &path;
            const bool isJudged = path != hugeName && !IsBelowChanged(path);
            const uint32_t first = isJudged ? node.FirstCluster() : 0;
            ForChain(disk, geometry, first, [&](uint32_t cluster) {
                const std::u16string* owner = ownerOf[cluster];
                EXPECT_FALSE(owner && *owner != *sharer && IsPromised(*owner))
                    << Printable(*sharer) << " shares with " << Printable(*owner);
            });
        }
        lostClusters += report.lostClusters;
        cutsWithSharing += report.Text().find("shares cluster") != std::string::npos;
        Tree seen;
        ListTree(seen, 500);
        EXPECT_TRUE(IsLibrarySound());
    }
};

// The lengths of the first sectors of a write of which the last one changes something.
std::vector<size_t> TornLengths(const MemoryDisk& disk, const DiskWrite& write) {
    std::vector<size_t> lengths;
    for (size_t at = 0, part = 0; at < write.bytes.size(); at += part) {
        part = std::min(512 - (write.positionBytes + at) % 512, write.bytes.size() - at);
        const Bytes old = disk.Read(write.positionBytes + at, part);
        if (std::memcmp(old.data(), &write.bytes[at], part) != 0) {
            lengths.push_back(at + part);
        }
    }
    return lengths;
}

// A step, and what it did to the first volume.
struct Done {
    std::vector<DiskWrite> writes;
    std::set<std::u16string> touched, placed;
    std::optional<Tree> flushed;  // when it did
};

std::vector<Done> RunAndUnmount(Workload& workload) {
    std::vector<Done> done;
    Side& first = workload.sides[0];
    first.disk.keepWrites = true;
    const auto note = [&] {
        const bool isFlushed = std::exchange(workload.isFlushed, false);
        done.push_back({std::exchange(first.disk.writes, {}), std::exchange(workload.touched, {}),
                        std::exchange(workload.placed, {}),
                        isFlushed ? std::optional(Model::Expected(first)) : std::nullopt});
    };
    for (const uint64_t step : workload.steps) {
        workload.Do(step);
        note();
    }
    workload.Use(first);
    workload.Remount();
    note();
    return done;
}

// `cut` is called for each write of the workloads, on the disk as it was before, with the disk as
// it was at the last flush and the writes since then.
template <class Cut>
void CutEachWrite(uint32_t fatType, bool isInOrder, Cut cut) {
    Judge judge{isInOrder};
    ForWorkloads([&](uint64_t sequence) {
        Workload workload(fatType, sequence);
        MemoryDisk disk = StartOf(fatType).disk, atFlush = disk;
        judge.BeginAfterFlush(disk, Model::Expected(workload.sides[0]));
        std::vector<DiskWrite> sinceFlush;
        size_t number = 0;
        for (Done& step : RunAndUnmount(workload)) {
            SCOPED_TRACE("step " + std::to_string(++number));
            judge.Note(step.touched, step.placed);
            for (const DiskWrite& write : step.writes) {
                sinceFlush.push_back(write);
                cut(judge, disk, atFlush, sinceFlush);
                disk.Write(write.positionBytes, write.bytes.data(), write.bytes.size());
            }
            if (step.flushed) {
                judge.BeginAfterFlush(disk, *std::move(step.flushed));
                atFlush.Restore(disk.Snapshot());
                sinceFlush.clear();
            }
        }
    });
    std::cout << "FAT" << fatType << (isInOrder ? ", in order: " : ", reordered: ") << judge.cuts
              << " cuts; " << judge.lostClusters << " lost clusters; " << judge.cutsWithSharing
              << " cuts with clusters shared among changed objects; " << judge.cutsWithoutRoot
              << " with a root directory that breaks off\n";
}

struct CutPower : testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Fat, CutPower, testing::Values(12, 16, 32),
                         testing::PrintToStringParamName());

TEST_P(CutPower, BetweenSectorsInOrder) {
    const auto cut = [](Judge& judge, const MemoryDisk& disk, auto&, auto& writes) {
        const DiskWrite& write = writes.back();
        const std::vector<size_t> lengths = TornLengths(disk, write);
        ForEvents(lengths.size(), 1, [&](uint64_t n) {
            MemoryDisk torn = disk;
            torn.Write(write.positionBytes, write.bytes.data(), lengths[n - 1]);
            judge.JudgeCut(torn);
        });
    };
    CutEachWrite(GetParam(), true, cut);
}

TEST_P(CutPower, OfStorageThatReordersWrites) {
    Rng rng(GetParam());
    const auto cut = [&](Judge& judge, auto&, const MemoryDisk& atFlush, auto& writes) {
        const uint64_t sample = writes.size() % 3 == 0 ? 1 : 0;  // after a third of the writes
        ForEvents(8, sample, [&](uint64_t) {
            MemoryDisk some = atFlush;
            for (const DiskWrite& write : writes) {
                some.Write(write.positionBytes, write.bytes.data(),
                           Below(rng, 2) * write.bytes.size());
            }
            judge.JudgeCut(some);
        });
    };
    CutEachWrite(GetParam(), false, cut);
}

// Calls `judge` with the disk as a cut leaves it, after each sector or each whole write.
template <class Action>
void ForCuts(MemoryDisk& disk, const std::vector<DiskWrite>& writes, bool isTorn, Action judge) {
    for (const DiskWrite& write : writes) {
        const std::vector<size_t> whole{write.bytes.size()};
        for (const size_t length : isTorn ? TornLengths(disk, write) : whole) {
            disk.Write(write.positionBytes, write.bytes.data(), length);
            judge(FoldedTree(disk));
        }
    }
}

// Another system may leave anything behind the end mark, here in the next sectors.
TEST_F(VolumeTest, EndMarksGoOutBeforeTheEntriesInTheirPlace) {
    for (const size_t units : {size_t{3}, size_t{56}}) {  // one slot, or more than the sector has
        ImageBuilder builder({});
        for (char16_t name = u'A'; name < u'P'; ++name) {
            builder.AddFile(builder.root, {name});
        }
        const Slot left = MakeShortEntry(*PlainShortName(u"LEFT"), 0x20, 0, 0);
        for (uint64_t slot = 16; slot < 60; ++slot) {
            builder.disk.Write(builder.geometry.rootPosition + slot * 32, left.data(), 32);
        }
        MemoryDisk disk = builder.disk;
        disk.keepWrites = true;
        const Mounted mounted(disk);
        EXPECT_TRUE(Fat_CreateDir(std::u16string(units, u'N').c_str(), 0));
        EXPECT_TRUE(Fat_FlushVolume(mounted.volume));
        ForCuts(builder.disk, disk.writes, true,
                [](const Tree& tree) { EXPECT_FALSE(tree.contains(u"LEFT")); });
    }
}

// They move from the second block to the first one, which is used again before both have to go.
TEST_F(VolumeTest, EntriesMovedTogetherAreNeverGone) {
    ImageBuilder builder({.fatType = 32, .sectorsPerCluster = 8, .clusterCount = 70000});
    std::vector<Slot> slots;
    for (int i = 0; i < 9214; ++i) {  // whole clusters with the dot entries
        const std::string digits = std::to_string(i);
        ShortName name{'F'};
        std::fill(std::copy(digits.begin(), digits.end(), name.begin() + 1), name.end(), ' ');
        slots.push_back(MakeShortEntry(name, 0x20, 0, 0));
    }
    slots[9][0] = slots[4000][0] = slots[8500][0] = 0xE5;
    builder.AddRawSlots(builder.AddDirectory(builder.root, u"D"), slots);
    EntryOptions huge;
    huge.size = (CacheBlockCount + 1) * CacheBlockSize;
    huge.clusters.resize(*huge.size / 4096);
    std::iota(huge.clusters.begin(), huge.clusters.end(), 20000);
    builder.AddFile(builder.root, hugeName, {}, huge);
    MemoryDisk disk = builder.disk;
    disk.keepWrites = true;
    const Mounted mounted(disk);
    EXPECT_TRUE(Fat_CreateDir(u"D\\in three slots", 0) && Fat_DeleteFile(u"D\\F0"));
    EXPECT_EQ(ReadWhole(hugeName).value_or(Bytes()).size(), *huge.size);
    EXPECT_GT(disk.writes.size(), 1U);
    ForCuts(builder.disk, disk.writes, false, [](const Tree& tree) {
        const auto isFile = [](const auto& each) { return each.first.starts_with(u"D\\F"); };
        EXPECT_GE(std::count_if(tree.begin(), tree.end(), isFile), 9210);
    });
}

}  // namespace
}  // namespace fatvol::test
