// Power is cut at every write of the workload, after every sector of it, and with some of the
// writes since the last flush missing.
#include <cstring>
#include <iostream>

#include "api/library_state.h"
#include "workload.h"

namespace fatvol::test {
namespace {

using Paths = std::set<std::u16string>;

// What was there at the last flush, what has been changed since, and the findings of all cuts.
struct Judge {
    const Model* flushed = nullptr;
    std::vector<const std::u16string*> ownerOf = {};  // by cluster
    Paths changed = {}, carried = {};                 // single objects; whole subtrees
    uint64_t cuts = 0, lostClusters = 0, cutsWithSharing = 0, cutsWithCarriedLost = 0;

    bool IsUntouched(const std::u16string& path) const {
        return !changed.contains(path) &&
               std::none_of(carried.begin(), carried.end(),
                            [&](const std::u16string& above) { return IsAtOrBelow(path, above); });
    }

    template <class Action>
    static void ForChain(const MemoryDisk& disk, const Geometry& geometry, const TreeNode& node,
                         Action action) {
        uint32_t left = geometry.clusterCount;  // chains of changed objects may have loops
        for (uint32_t at = node.FirstCluster(); geometry.HasCluster(at) && left > 0; --left) {
            action(at);
            at = test::GetFatEntry(disk, geometry, at);
        }
    }

    // After a flush that was true everything is there, whole.
    void BeginAfterFlush(const MemoryDisk& disk, const Model& model) {
        EXPECT_EQ(CheckImage(disk).Text(), "");
        const Tree tree = FoldedTree(disk);
        EXPECT_EQ(model.Difference(tree), "");
        const Geometry geometry = ReadGeometry(disk);
        flushed = &model;
        ownerOf.assign(geometry.clusterCount + 2, nullptr);
        for (const auto& [path, node] : tree) {
            const std::u16string* const owner = &model.nodes.find(path)->first;
            ForChain(disk, geometry, node, [&](uint32_t cluster) { ownerOf[cluster] = owner; });
        }
        changed.clear();
        carried.clear();
    }

    void Note(const Step& step, const std::u16string& heldPath) {
        const bool carries = step.op == "rename" || step.op == "move";
        const bool byPath = step.op == "create" || step.op == "mkdir" || step.op == "delete";
        const bool byHandle = step.op == "write" || step.op == "resize" || step.op == "attributes";
        if (carries || byPath || byHandle) {
            (carries ? carried : changed).insert(byHandle ? heldPath : FoldAscii(step.path));
        }
    }

    void JudgeCut(MemoryDisk& disk) {
        const Geometry geometry = ReadGeometry(disk);
        const Tree tree = FoldedTree(disk);
        std::string damage;
        bool isCarriedLost = false;
        for (const auto& [path, node] : flushed->nodes) {
            const bool isLost = !Difference(node, tree, path).empty();
            damage += isLost && IsUntouched(path) ? Printable(path) + " is damaged\n" : "";
            isCarriedLost |= isLost && !changed.contains(path);
        }
        for (const auto& found : tree) {
            const std::u16string& path = found.first;
            const TreeNode& node = path == u"HUGE" ? TreeNode{} : found.second;
            ForChain(disk, geometry, node, [&](uint32_t cluster) {
                const std::u16string* owner = ownerOf[cluster];
                damage += owner && *owner != path && IsUntouched(*owner)
                              ? Printable(path) + " shares with " + Printable(*owner) + "\n"
                              : "";
            });
        }
        EXPECT_EQ(damage, "");
        const ImageReport report = CheckImage(disk);
        ++cuts;
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

// A step of the workload with what it wrote; the last one is unmounting.
struct Recorded {
    Step step;
    std::u16string heldPath;
    std::vector<DiskWrite> writes;
    Model after;  // of a flush
};

std::vector<Recorded> Record(uint32_t fatType, std::optional<MemoryDisk>& start) {
    Session session(fatType);
    EXPECT_TRUE(session.Start());
    start.emplace(session.disk.sizeBytes).Restore(session.disk.Snapshot());
    std::vector<Recorded> records{{{"flush"}, {}, {}, session.model}};
    session.disk.keepWrites = true;
    for (const Step& step : Workload()) {
        EXPECT_TRUE(session.Run(step)) << "step " << records.size();
        const bool isFlush = step.op == "flush" || step.op == "remount";
        records.push_back({step, session.PathOf(step), std::exchange(session.disk.writes, {}),
                           isFlush ? session.model : Model()});
    }
    EXPECT_TRUE(session.Unmount());
    records.push_back({{"flush"}, {}, std::exchange(session.disk.writes, {}), session.model});
    return records;
}

// Replays the writes; `cut` is called before each with those since the last flush and the disk as
// it was then.
template <class Cut>
void Replay(uint32_t fatType, const char* name, Cut cut) {
    std::optional<MemoryDisk> start;
    const std::vector<Recorded> records = Record(fatType, start);
    Fat_LibInitialize();
    MemoryDisk &disk = *start, atFlush(disk.sizeBytes);
    std::vector<DiskWrite> sinceFlush;
    Judge judge;
    for (const Recorded& record : records) {
        judge.Note(record.step, record.heldPath);
        for (const DiskWrite& write : record.writes) {
            SCOPED_TRACE(record.step.op + ", write at " + std::to_string(write.positionBytes));
            sinceFlush.push_back(write);
            cut(judge, disk, atFlush, sinceFlush);
            disk.Replay({write}, 1);
        }
        if (record.step.op == "flush" || record.step.op == "remount") {
            judge.BeginAfterFlush(disk, record.after);
            atFlush.Restore(disk.Snapshot());
            sinceFlush.clear();
        }
    }
    std::cout << "FAT" << fatType << ", " << name << ": " << judge.cuts << " cuts; "
              << judge.lostClusters << " lost clusters; " << judge.cutsWithSharing
              << " cuts with clusters shared among changed objects; " << judge.cutsWithCarriedLost
              << " with something not found below a renamed or moved directory\n";
}

struct CutPower : VolumeTest, testing::WithParamInterface<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Fat, CutPower, testing::Values(12, 16, 32),
                         testing::PrintToStringParamName());

TEST_P(CutPower, BetweenSectorsInOrder) {
    Replay(GetParam(), "in order", [](Judge& judge, const MemoryDisk& disk, auto&, auto& writes) {
        const DiskWrite& write = writes.back();
        const std::vector<size_t> lengths = TornLengths(disk, write);
        ForEvents(lengths.size(), 1, [&](uint64_t n) {
            MemoryDisk cut(disk.sizeBytes);
            cut.Restore(disk.Snapshot());
            cut.Write(write.positionBytes, write.bytes.data(), lengths[n - 1]);
            judge.JudgeCut(cut);
        });
    });
}

TEST_P(CutPower, OfStorageThatReordersWrites) {
    Rng rng(GetParam());
    Replay(GetParam(), "reordered",
           [&](Judge& judge, auto&, const MemoryDisk& atFlush, auto& writes) {
               ForEvents(8, writes.size() % 3 == 0, [&](uint64_t) {
                   MemoryDisk cut(atFlush.sizeBytes);
                   cut.Restore(atFlush.Snapshot());
                   for (const DiskWrite& write : writes) {
                       cut.Write(write.positionBytes, write.bytes.data(),
                                 Below(rng, 2) * write.bytes.size());
                   }
                   judge.JudgeCut(cut);
               });
           });
}

}  // namespace
}  // namespace fatvol::test
