// Mounting, checking and unmounting the volumes of the model, and handles on their files.
#pragma once

#include "dir/short_name.h"
#include "model_tree.h"
#include "support/judges.h"

namespace fatvol::test {

// The volumes themselves, mounted, and the handles on them.
struct ModelVolumes : ModelTree {
    ModelVolumes(size_t geometry, uint64_t sequence, std::string* said)
        : ModelTree(geometry, sequence, said) {
        for (Side& each : sides) {
            SpoilClusters(each.builder);
            side = &each;
            Mount();
        }
    }
    ~ModelVolumes() { CloseAll(); }

    void Open(const NodeRef& node) {
        const int handle = Fat_OpenFile(Spelled(node->path).c_str());
        EXPECT_EQ(handle >= 0, held.size() < fileHandles) << Printable(node->path);
        if (handle >= 0) {
            held.push_back({side, node, handle});
            ++node->holders;
        }
    }
    void Close(size_t index) {
        EXPECT_TRUE(Fat_CloseFile(held[index].handle));
        held[index].node->position = 0;
        --held[index].node->holders;
        held.erase(held.begin() + static_cast<long>(index));
    }
    void CloseFind(size_t index) {
        EXPECT_TRUE(Fat_CloseFindHandle(finds[index].handle));
        if (finds[index].directory) {
            --finds[index].directory->holders;
        }
        finds.erase(finds.begin() + static_cast<long>(index));
    }
    // Of a volume that is gone, whose handles do nothing any more, or of both.
    void CloseAll(const Side* gone = nullptr) {
        unsigned int size = 0;
        FatFileInfo info{};
        for (size_t i = held.size(); i-- > 0;) {
            if (!gone || held[i].side == gone) {
                EXPECT_TRUE(!gone || !Fat_GetFileSize(held[i].handle, &size));
                Close(i);
            }
        }
        for (size_t i = finds.size(); i-- > 0;) {
            if (!gone || finds[i].side == gone) {
                EXPECT_TRUE(!gone || !Fat_FindNextFile(finds[i].handle, &info));
                CloseFind(i);
            }
        }
    }
    // Runs `use` with a handle that is held already, on either volume, or with a new one.
    template <class Use>
    void WithHandle(bool directories, Use use) {
        size_t index = held.empty() ? 0 : Below(rng, held.size());
        if (held.empty() || (held.size() < fileHandles && Chance(2))) {
            const NodeRef node = Pick(directories, true);
            index = held.size();
            if (node) {
                Open(node);
            }
        }
        if (index >= held.size()) {
            return;
        }
        Say("  on " + Printable(held[index].node->path));
        use(held[index]);
        if (!Chance(6)) {
            Close(index);
        }
    }

    // Marks clusters bad, now and then most of them, for free space that is scarce and scattered.
    void SpoilClusters(ImageBuilder& builder) {
        const uint32_t count = builder.geometry.clusterCount;
        const bool isLarge = builder.geometry.clusterBytes > 65536;
        if (!isLarge && Chance(2)) {
            return;
        }
        const uint64_t kept = 10 + Below(rng, isLarge ? 50 : Chance(2) ? 60 : count);
        for (uint32_t cluster = 3; cluster < count + 2; ++cluster) {
            if (Below(rng, count) >= kept) {
                builder.SetFatEntry(cluster, builder.geometry.badMark);
            }
        }
    }
    // The tails of aliases start over, so that they meet those of earlier mounts.
    void Mount() {
        ResetShortNameTailsForTests();
        side->mounted = std::make_unique<Mounted>(side->builder.disk);
    }
    void Switch() {
        side = side == &sides[0] ? &sides[1] : &sides[0];
        SetCurrentFileSystem(side->mounted->volume);
    }
    void Flush() {
        ASSERT_TRUE(Fat_FlushVolume(side->mounted->volume));
        CheckDisk();
    }
    // The library's view, then the checker's, then the library's again after a new mount.
    void Remount() {
        CheckListing();
        Side& done = *side;
        ASSERT_TRUE(done.mounted->Unmount());
        Switch();
        CloseAll(&done);
        side = &done;
        const uint64_t freeClusters = CheckDisk();
        Mount();
        EXPECT_EQ(done.mounted->Info().freeClusters, freeClusters);
        CheckListing();
    }
    uint64_t CheckDisk() {
        const MemoryDisk& disk = side->builder.disk;
        const ImageReport report = CheckImage(disk);
        // A move carries its run with its alias unchanged, which may double one.
        EXPECT_TRUE(report.faults.empty() && report.lostClusters == 0 && !report.areFatsDifferent &&
                    !report.isFreeCountWrong)
            << report.Text();
        const Tree tree = Folded(ReadTree(disk)), expected = Expected();
        EXPECT_EQ(Difference(expected, tree), "");
        for (const auto& [path, node] : expected) {
            const auto found = tree.find(path);
            EXPECT_TRUE(found == tree.end() || TimesOf(found->second.entry) == TimesOf(node.entry))
                << "times of " << Printable(path);
        }
        if (Chance(8) || !report.duplicateShortNames.empty()) {
            ExpectJudgedSound(disk);
        }
        return report.freeClusters;
    }
    void CheckListing() {
        while (held.size() > fileHandles - 2) {
            Close(held.size() - 1);
        }
        while (finds.size() > findHandles - 2) {
            CloseFind(finds.size() - 1);
        }
        Tree tree;
        ListTree(tree);
        EXPECT_EQ(Difference(Expected(), Folded(tree)), "");
    }
    // What a creation made on its way, all of it unless it failed.
    void AddMissingParents(const std::u16string& path, bool isCertain) {
        if (held.size() == fileHandles) {
            Close(0);
        }
        for (size_t at = path.find(u'\\'); at != path.npos; at = path.find(u'\\', at + 1)) {
            const std::u16string above = path.substr(0, at);
            if (!Find(above)) {
                if (!isCertain && !CanOpen(above)) {
                    return;
                }
                Add(above, true, 0);
            }
        }
    }
};

}  // namespace fatvol::test
