// Power is cut at every write of the workload, after every sector of it, and with some of the
// writes since the last flush missing.
#include <cstring>
#include <iostream>

#include "api/library_state.h"
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

// What was there at the last flush, what has been changed since, and the findings of all cuts.
struct Judge {
    const bool isInOrder;
    Model flushed = {};
    std::vector<const std::u16string*> ownerOf = {};           // by cluster
    std::set<std::u16string> changed = {};                     // with all below
    std::map<std::u16string, std::u16string> shortPaths = {};  // of what was there
    // The other way round, in directories whose entries may have been moved together.
    std::map<std::u16string, std::u16string> longPaths = {};
    uint64_t cuts = 0, lostClusters = 0, cutsWithSharing = 0, cutsWithCarriedLost = 0;
    uint64_t cutsWithoutRoot = 0;

    // Not touched since; writes out of order may lose entries that were moved together.
    bool IsPromised(const std::u16string& path) const {
        bool isMoved = false;
        for (std::u16string at = path; !at.empty() && !isInOrder; at = ParentOf(at)) {
            isMoved = isMoved || longPaths.contains(shortPaths.at(at));
        }
        return !isMoved &&
               std::none_of(changed.begin(), changed.end(),
                            [&](const std::u16string& each) { return IsAtOrBelow(path, each); });
    }

    // After a flush that was true everything is there, whole.
    void BeginAfterFlush(const MemoryDisk& disk, const Model& model) {
        EXPECT_EQ(CheckImage(disk).Text(), "");
        const Tree tree = FoldedTree(disk);
        const Geometry geometry = ReadGeometry(disk);
        flushed = model;
        changed.clear();
        shortPaths.clear();
        longPaths.clear();
        ownerOf.assign(geometry.clusterCount + 2, nullptr);
        EXPECT_EQ(tree.size(), flushed.size());
        for (const auto& [path, node] : flushed) {
            ASSERT_TRUE(IsThere(tree, path, node)) << Printable(path);
            const TreeNode& found = tree.at(path);
            shortPaths[path] = JoinPath(ParentOf(path), DisplayName(found.entry.data()));
            const std::u16string* const owner = &path;
            ForChain(disk, geometry, found.FirstCluster(),
                     [&](uint32_t cluster) { ownerOf[cluster] = owner; });
        }
    }

    // Where a step changes a directory, new names there have others moved together.
    void Note(const Step& step) {
        const std::u16string path = FoldAscii(step.path), target = FoldAscii(step.target);
        changed.insert(path);
        std::set<std::u16string> directories = {step.op == "move" ? target : ParentOf(path)};
        for (std::u16string at = path; !at.empty(); at = ParentOf(at)) {
            directories.insert(ParentOf(at));
        }
        for (const auto& [longPath, shortPath] : shortPaths) {
            if (directories.contains(ParentOf(longPath))) {
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
        bool isCarriedLost = false;
        for (const auto& [path, node] : flushed) {
            const bool isLost = !IsThere(tree, path, node);
            EXPECT_FALSE(isLost && IsPromised(path)) << Printable(path) << " is damaged";
            isCarriedLost |= isLost && !changed.contains(path);
        }
        for (const auto& [path, node] : tree) {
            const std::u16string* const sharer = &path;
            const uint32_t first = path == u"HUGE" ? 0 : node.FirstCluster();
            ForChain(disk, geometry, first, [&](uint32_t cluster) {
                const std::u16string* owner = ownerOf[cluster];
                EXPECT_FALSE(owner && *owner != *sharer && IsPromised(*owner))
                    << Printable(*sharer) << " shares with " << Printable(*owner);
            });
        }
        lostClusters += report.lostClusters;
        cutsWithSharing += report.Text().find("shares cluster") != std::string::npos;
        cutsWithCarriedLost += isCarriedLost;
        const Mounted mounted(disk);
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

// Runs the workload, and unmounts. `cut` is called for each write, on the disk as it was before,
// with the disk as it was at the last flush and the writes since then.
template <class Cut>
void CutEachWrite(uint32_t fatType, bool isInOrder, Cut cut) {
    static const std::set<std::string> changing = {"create", "mkdir", "write",  "resize",
                                                   "rename", "move",  "delete", "attributes"};
    Session session(fatType);
    EXPECT_TRUE(session.Start());
    MemoryDisk disk(session.disk.sizeBytes), atFlush(session.disk.sizeBytes);
    disk.Restore(session.disk.Snapshot());
    atFlush.Restore(session.disk.Snapshot());
    const Model start = session.model;
    session.disk.keepWrites = true;
    std::vector<Step> steps = Workload();
    steps.push_back({"remount"});
    std::vector<std::vector<DiskWrite>> writes;
    std::map<size_t, Model> afterFlush;
    for (const Step& step : steps) {
        EXPECT_TRUE(session.Run(step)) << "step " << writes.size();
        writes.push_back(std::exchange(session.disk.writes, {}));
        if (step.op == "flush" || step.op == "remount") {
            afterFlush[writes.size() - 1] = session.model;
        }
    }
    Judge judge{isInOrder};
    judge.BeginAfterFlush(disk, start);
    std::vector<DiskWrite> sinceFlush;
    for (size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i + 1) + ", " + steps[i].op);
        if (changing.contains(steps[i].op)) {
            judge.Note(steps[i]);
        }
        for (const DiskWrite& write : writes[i]) {
            sinceFlush.push_back(write);
            cut(judge, disk, atFlush, sinceFlush);
            disk.Write(write.positionBytes, write.bytes.data(), write.bytes.size());
        }
        if (afterFlush.contains(i)) {
            judge.BeginAfterFlush(disk, afterFlush[i]);
            atFlush.Restore(disk.Snapshot());
            sinceFlush.clear();
        }
    }
    std::cout << "FAT" << fatType << (isInOrder ? ", in order: " : ", reordered: ") << judge.cuts
              << " cuts; " << judge.lostClusters << " lost clusters; " << judge.cutsWithSharing
              << " cuts with clusters shared among changed objects; " << judge.cutsWithCarriedLost
              << " with something not found below a renamed or moved directory; "
              << judge.cutsWithoutRoot << " with a root directory that breaks off\n";
}

struct CutPower : testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Fat, CutPower, testing::Values(12, 16, 32),
                         testing::PrintToStringParamName());

TEST_P(CutPower, BetweenSectorsInOrder) {
    const auto cut = [](Judge& judge, const MemoryDisk& disk, auto&, auto& writes) {
        const DiskWrite& write = writes.back();
        const std::vector<size_t> lengths = TornLengths(disk, write);
        ForEvents(lengths.size(), 1, [&](uint64_t n) {
            MemoryDisk torn(disk.sizeBytes);
            torn.Restore(disk.Snapshot());
            torn.Write(write.positionBytes, write.bytes.data(), lengths[n - 1]);
            judge.JudgeCut(torn);
        });
    };
    CutEachWrite(GetParam(), true, cut);
}

TEST_P(CutPower, OfStorageThatReordersWrites) {
    Rng rng(GetParam());
    const auto cut = [&](Judge& judge, auto&, const MemoryDisk& atFlush, auto& writes) {
        ForEvents(8, writes.size() % 3 == 0, [&](uint64_t) {
            MemoryDisk some(atFlush.sizeBytes);
            some.Restore(atFlush.Snapshot());
            for (const DiskWrite& write : writes) {
                some.Write(write.positionBytes, write.bytes.data(),
                           Below(rng, 2) * write.bytes.size());
            }
            judge.JudgeCut(some);
        });
    };
    CutEachWrite(GetParam(), false, cut);
}

}  // namespace
}  // namespace fatvol::test
