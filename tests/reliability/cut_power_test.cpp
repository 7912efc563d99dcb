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
    Model flushed = {};
    std::vector<const std::u16string*> ownerOf = {};  // by cluster
    std::set<std::u16string> changed = {};            // with all below
    uint64_t cuts = 0, lostClusters = 0, cutsWithSharing = 0, cutsWithCarriedLost = 0;

    bool IsUntouched(const std::u16string& path) const {
        return std::none_of(changed.begin(), changed.end(),
                            [&](const std::u16string& each) { return IsAtOrBelow(path, each); });
    }

    // After a flush that was true everything is there, whole.
    void BeginAfterFlush(const MemoryDisk& disk, const Model& model) {
        EXPECT_EQ(CheckImage(disk).Text(), "");
        const Tree tree = FoldedTree(disk);
        const Geometry geometry = ReadGeometry(disk);
        flushed = model;
        changed.clear();
        ownerOf.assign(geometry.clusterCount + 2, nullptr);
        EXPECT_EQ(tree.size(), flushed.size());
        for (const auto& [path, node] : flushed) {
            ASSERT_TRUE(IsThere(tree, path, node)) << Printable(path);
            const std::u16string* const owner = &path;
            ForChain(disk, geometry, tree.at(path).FirstCluster(),
                     [&](uint32_t cluster) { ownerOf[cluster] = owner; });
        }
    }

    void JudgeCut(MemoryDisk& disk) {
        const Geometry geometry = ReadGeometry(disk);
        const Tree tree = FoldedTree(disk);
        bool isCarriedLost = false;
        for (const auto& [path, node] : flushed) {
            const bool isLost = !IsThere(tree, path, node);
            EXPECT_FALSE(isLost && IsUntouched(path)) << Printable(path) << " is damaged";
            isCarriedLost |= isLost && !changed.contains(path);
        }
        for (const auto& [path, node] : tree) {
            const std::u16string* const sharer = &path;
            const uint32_t first = path == u"HUGE" ? 0 : node.FirstCluster();
            ForChain(disk, geometry, first, [&](uint32_t cluster) {
                const std::u16string* owner = ownerOf[cluster];
                EXPECT_FALSE(owner && *owner != *sharer && IsUntouched(*owner))
                    << Printable(*sharer) << " shares with " << Printable(*owner);
            });
        }
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

// Runs the workload, and unmounts. `cut` is called for each write, on the disk as it was before,
// with the disk as it was at the last flush and the writes since then.
template <class Cut>
void CutEachWrite(uint32_t fatType, const char* name, Cut cut) {
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
    Judge judge;
    judge.BeginAfterFlush(disk, start);
    std::vector<DiskWrite> sinceFlush;
    for (size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i + 1) + ", " + steps[i].op);
        if (changing.contains(steps[i].op)) {
            judge.changed.insert(FoldAscii(steps[i].path));
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
    std::cout << "FAT" << fatType << ", " << name << ": " << judge.cuts << " cuts; "
              << judge.lostClusters << " lost clusters; " << judge.cutsWithSharing
              << " cuts with clusters shared among changed objects; " << judge.cutsWithCarriedLost
              << " with something not found below a renamed or moved directory\n";
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
    CutEachWrite(GetParam(), "in order", cut);
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
    CutEachWrite(GetParam(), "reordered", cut);
}

}  // namespace
}  // namespace fatvol::test
