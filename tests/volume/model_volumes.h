// The volumes of the model and their life; nothing of them is lost when storage or memory fails.
#pragma once

#include <set>

#include "dir/short_name.h"
#include "model_tree.h"
#include "platform/clock.h"
#include "support/environment.h"
#include "support/failure_point.h"

namespace fatvol::test {

// The volumes themselves, mounted. What fails in the first one's storage, or for lack of memory,
// makes the call fail that is under way, or the next flush.
struct ModelVolumes : ModelTree {
    ModelVolumes(const ImageBuilder& first, const ImageBuilder& second)
        : ModelTree(first, second), hasHuge(first.tree.contains(hugeName)) {
        sides[0].disk.beforeCall = [](const Call& call) {
            const bool isOfThem = IsWrite(call.kind) ? failurePoint.writes : failurePoint.reads;
            return failurePoint.Fails(isOfThem) ? -5 : 0;
        };
        sides[0].disk.failure.tornWrites = failurePoint.tearsWrites;
        UseTimeZone("UTC");
        FixClockForTests(1710510330);  // 2024-03-15 13:45:30
        Start();
    }
    ~ModelVolumes() {
        failurePoint = {};
        Start();  // a volume, so that handles can be closed
        CloseAll(nullptr);
        for (Side& each : sides) {
            side = &each;
            Unmount();
            EXPECT_EQ(each.disk.counters.Breaches(), 0U);
        }
        EXPECT_TRUE(Fat_LibTerminate());
        FixClockForTests(std::nullopt);
    }
    ModelVolumes(const ModelVolumes&) = delete;

    std::string said;  // a line for each call that matters
    // On the first volume, what calls may have changed, and what of that needed new entries.
    std::set<std::u16string> touched, placed;
    bool isFlushed = false;     // the first volume, after its last change
    uint64_t lostClusters = 0;  // after failures
    // The object that may be broken, because undoing its change has failed: its volume refuses
    // changes from then on.
    std::optional<std::u16string> damaged;

    void Say(const std::string& call, const std::u16string& path) {
        said += call + " " + Printable(path) + "\n";
    }
    void Touch(const Side* on, const std::u16string& path, bool needsEntry = false) {
        lastTouched = Fold(path);
        if (on == &sides[0]) {
            touched.insert(lastTouched);
            if (needsEntry) {
                placed.insert(lastTouched);
            }
            isFlushed = false;
        }
    }

    // Makes a call that is true as expected, unless something has failed in it or room may be
    // short.
    template <class Call>
    bool Try(bool expected, Call call, bool isTight = false) {
        const uint64_t failedBefore = failurePoint.failed;
        const bool done = call();
        hasFailed = failurePoint.failed != failedBefore;
        isUntold = isUntold || (done && hasFailed && !failurePoint.allocations);
        for (const Side& each : sides) {
            if (!done && !damaged && each.volume && each.Info().refusesChanges) {
                damaged = lastTouched;
            }
        }
        EXPECT_TRUE(done ? expected : !expected || isTight || hasFailed || damaged);
        return done;
    }

    // ---- Volumes

    bool IsReady() const { return sides[0].volume && sides[1].volume; }
    void Start() {
        Side& current = *side;
        for (int tries = 0; !IsReady() && tries < 2; ++tries) {
            for (Side& each : sides) {
                side = &each;
                Mount();
            }
        }
        Use(current);
    }
    // The tails of aliases start over, so that they meet those of earlier mounts.
    void Mount() {
        ResetShortNameTailsForTests();
        Try(true, [&] {
            Fat_LibInitialize();
            side->volume =
                side->volume ? side->volume : Fat_Mount(new MemoryStorage(side->disk), nullptr);
            return side->volume != nullptr;
        });
    }
    void Unmount() {
        FatVolume* const gone = std::exchange(side->volume, nullptr);
        EXPECT_TRUE(Fat_Unmount(gone) || (failurePoint.failed != 0 && Fat_Unmount(gone)));
    }
    void Use(Side& next) {
        side = &next;
        SetCurrentFileSystem(side->volume);
    }
    void Switch() {
        Say("switch", u"");
        Use(side == &sides[0] ? sides[1] : sides[0]);
    }
    void Remount() {
        Say("remount", u"");
        Side& done = *side;
        if (IsFailing() && !Flush()) {
            return;
        }
        Unmount();
        Switch();
        CloseAll(&done);
        side = &done;
        isFlushed = isFlushed || side == &sides[0];
        Mount();
        CheckDisk(true);
    }
    bool IsFailing() const { return failurePoint.failAt != 0; }
    // What is on the volume must be sound and the model's, unless something may still fail.
    void CheckDisk(bool isFresh = false) {
        if (IsFailing()) {
            return;
        }
        const ImageReport report = CheckImage(side->disk);
        lostClusters += isFresh ? report.lostClusters : 0;
        // A move carries its run with its alias unchanged, which may double one.
        EXPECT_TRUE(damaged || (report.faults.empty() && !report.isFreeCountWrong))
            << report.Text();
        EXPECT_TRUE(!report.areFatsDifferent && report.Text().find("shares") == std::string::npos);
        const bool hasEverFailed = failurePoint.failed != 0;
        EXPECT_TRUE(report.lostClusters == 0 || hasEverFailed);
        // What could not be freed as a whole stays taken until the volume is mounted again.
        const uint64_t known = side->volume ? side->Info().freeClusters : report.freeClusters;
        EXPECT_TRUE(known == report.freeClusters ||
                    (hasEverFailed && !isFresh && known < report.freeClusters));
        const Tree expected = Expected(*side);
        Tree tree = FoldedTree(side->disk);
        const Bytes& huge = tree[hugeName].content;
        EXPECT_EQ(std::count(huge.begin(), huge.end(), side->disk.fillByte), std::ssize(huge));
        tree.erase(hugeName);
        EXPECT_EQ(tree.size(), expected.size()) << Difference(expected, tree);
        for (const auto& [path, node] : expected) {
            EXPECT_TRUE(AreAlike(tree[path], node) || path == damaged) << Printable(path);
        }
    }
    bool Flush() {
        Say("flush", u"");
        const auto flush = [&] { return Fat_FlushVolume(side->volume); };
        const bool done = Try(true, flush, failurePoint.failed != side->failedAtFlush);
        side->failedAtFlush = failurePoint.failed;
        // Flushing needs no memory where the FAT fits its cache.
        const bool fits = side->volume->fatTable.lastBlockIndex < FatCacheCapacity;
        EXPECT_TRUE(done || !failurePoint.allocations || damaged || !fits);
        if (side == &sides[0]) {
            EXPECT_FALSE(done && isUntold);
            isUntold = false;
            isFlushed = done;
        }
        if (done) {
            CheckDisk();
        }
        return done;
    }
    // Reads the huge file of the first volume, if there is one: what the cache holds makes way.
    void Sweep() {
        static Bytes piece(usualBytes);
        const auto read = [] {
            const File huge(hugeName);
            unsigned int count = 0;
            bool done = true;
            for (uint32_t at = 0; at < hugeBytes && done; at += usualBytes) {
                done = Fat_ReadFileEx(huge.handle, at, usualBytes, piece.data(), &count);
            }
            return done;
        };
        SetCurrentFileSystem(sides[0].volume);
        Try(hasHuge && files.size() < fileHandles, read);
        SetCurrentFileSystem(side->volume);
    }

    // ---- Handles

    template <class Call>
    bool Hold(std::vector<Held>& list, const NodeRef& node, bool expected, Call call) {
        int handle = -1;
        const size_t limit = &list == &files ? fileHandles : findHandles;
        Try(expected && list.size() < limit, [&] { return (handle = call()) >= 0; });
        if (handle >= 0) {
            list.push_back({side, node, handle});
            ++node->holders;
        }
        return handle >= 0;
    }
    void Close(std::vector<Held>& list, size_t index) {
        const Held held = list[index];
        list.erase(list.begin() + static_cast<long>(index));
        held.node->position = 0;
        --held.node->holders;
        Try(true, [&] {
            return &list == &files ? Fat_CloseFile(held.handle) : Fat_CloseFindHandle(held.handle);
        });
    }
    // Of a volume that is gone, whose handles do nothing any more; all of them for null.
    void CloseAll(const Side* gone) {
        unsigned int size = 0;
        FatFileInfo info{};
        for (std::vector<Held>* const list : {&files, &finds}) {
            for (size_t i = list->size(); i-- > 0;) {
                const Held& held = (*list)[i];
                if (held.side == gone) {
                    EXPECT_FALSE(list == &files ? Fat_GetFileSize(held.handle, &size)
                                                : Fat_FindNextFile(held.handle, &info));
                }
                if (!gone || held.side == gone) {
                    Close(*list, i);
                }
            }
        }
    }

protected:
    const bool hasHuge;
    bool hasFailed = false;  // anything, in the last call tried
    bool isUntold = false;   // a failed storage call has not reached the caller yet
    std::u16string lastTouched;
};

}  // namespace fatvol::test
