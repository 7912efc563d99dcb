#include "scenario.h"

#include <climits>
#include <functional>

#include "api/library_state.h"
#include "dir/listing_check.h"
#include "dir/short_name.h"
#include "hostile_volume.h"
#include "platform/clock.h"
#include "support/allocation_hook.h"
#include "support/image_builder.h"
#include "support/image_checker.h"

namespace fatvol::test {
namespace {

uint64_t allocatedBytes = 0;

// A volume that stays mounted, because handles can only be closed while there is a current one.
FatVolume* KeptVolume() {
    static ImageBuilder builder({.fatType = 12, .clusterCount = 10});
    static FatVolume* kept = nullptr;
    if (!Library || !IsMountedVolume(kept)) {
        Fat_LibInitialize();
        kept = Fat_Mount(new MemoryStorage(builder.disk), nullptr);
    }
    return kept;
}

void GetAll(int handle, unsigned int* offset, unsigned int* size, FatFileInfo* info) {
    Fat_GetFileOffset(handle, offset);
    Fat_GetFileSize(handle, size);
    Fat_GetFileAttribute(handle, info);
}
void SetOffset(int handle, unsigned int offset, unsigned char origin) {
    Fat_SetFileOffset(handle, offset, origin % 5);
}
void FindFirstInRoot(const char16_t*, FatFileInfo* info) {
    Fat_FindFirstRootFile(info);
}

struct Side {
    std::unique_ptr<HostileDisk> disk;
    FatVolume* mounted = nullptr;
    FatVolume* last = nullptr;  // what was mounted last, be it still or not
    HostileStorage* storage = nullptr;
    uint64_t storagesMade = 0;
};

template <class T>
struct Of {};

class Host {
public:
    Host(std::span<const uint8_t> bytes, ScenarioTotals& sums) : input{bytes}, totals(sums) {
        const uint8_t kinds[] = {input.Byte(), input.Byte()};
        mayEndLibrary = kinds[0] >= 0xE0;
        for (size_t i = 0; i < 2; ++i) {
            sides[i].disk = MakeHostileVolume(kinds[i] % volumeKinds, input);
            const HostileDisk& disk = *sides[i].disk;
            totals["hostile volumes"] += !disk.isSound;
            // Enough for what a call keeps in any case, and for what it may need of a volume.
            memoryBudget += (2U << 20) + 4 * disk.endBytes;
            // What cannot be written is tried three times by the call that has to let it go,
            // cluster by cluster, wherever the medium ends.
            callBudget += 50 + 3 * (disk.imageBytes / std::max<uint64_t>(disk.clusterBytes, 128));
        }
    }

    std::string Run(uint64_t callsPerCheck) {
        FixClockForTests(1700000000);
        ResetShortNameTailsForTests();
        KeptVolume();
        mayAllocate = [](size_t size) {
            allocatedBytes += size;
            return true;
        };
        for (uint64_t calls = 0; wrong.empty() && (calls == 0 || !input.left.empty()); ++calls) {
            allocatedBytes = HostileDisk::storageCalls = 0;
            calls == 0 ? Mount() : Act();
            Charge("% of the budget of memory", allocatedBytes, memoryBudget);
            Charge("% of the budget of storage calls", HostileDisk::storageCalls, callBudget);
            totals["storage calls"] += HostileDisk::storageCalls;
            ++totals["calls"];
            if (calls % callsPerCheck == 0) {
                CheckState();
            }
        }
        CheckState();
        Finish();
        return wrong;
    }

private:
    Input input;
    ScenarioTotals& totals;
    std::string wrong;
    Side sides[2];
    bool mayEndLibrary;  // which is slow, and therefore rare
    uint64_t memoryBudget = 0, callBudget = 0;
    bool areListingsInStep = true;  // until raw entries are written to a directory
    // What a call is made with.
    Side* side = &sides[0];
    uint8_t choice = 0;
    std::u16string paths[2];
    size_t pathCount = 0;
    unsigned int number = 0;
    FatFileInfo info{};
    FatVolumeInfo volumeInfo{};

    void Require(bool holds, const char* what) { wrong += holds ? "" : what; }

    void Charge(const char* budget, uint64_t used, uint64_t limit) {
        totals[budget] = std::max(totals[budget], 100 * used / limit);
        Require(used <= limit, "beyond a budget\n");
    }

    // A call with arguments that the input chooses by their types.
    template <class Result, class... Arguments>
    void CallWithAny(Result (*function)(Arguments...)) {
        std::apply(function, std::tuple<Arguments...>{Any(Of<Arguments>())...});
    }
    template <auto function>
    void Call() {
        CallWithAny(function);
    }

    using Action = void (Host::*)();
    template <auto function>
    static constexpr Action call = &Host::Call<function>;

    // Each is as likely as it stands here often.
    Action AnyActionOnHandle() {
        return input.OneOf(call<Fat_CloseFile>, call<Fat_CloseFindHandle>, call<Fat_FindNextFile>,
                           call<Fat_FindNextFile>, call<GetAll>, call<SetOffset>,
                           call<Fat_SetFileAttribute>, call<Fat_SetFileSize>, call<Fat_SetFileSize>,
                           &Host::Transfer, &Host::Transfer);
    }
    Action AnyActionOnPath() {
        return input.OneOf(call<Fat_OpenFile>, call<Fat_OpenFile>, call<Fat_OpenFile>,
                           call<Fat_OpenFile>, call<Fat_CreateFile>, call<Fat_CreateFile>,
                           call<Fat_CreateDir>, call<Fat_DeleteFile>, call<Fat_RenameFile>,
                           call<Fat_MoveFile>, call<Fat_FindFirstFile>, call<FindFirstInRoot>);
    }
    Action AnyActionOnVolume() {
        const Action action =
            input.OneOf(call<Fat_GetVolumeInfo>, call<Fat_FlushVolume>, call<SetCurrentFileSystem>,
                        call<SetCurrentFileSystem>, &Host::Unmount, &Host::Mount, &Host::Mount,
                        &Host::ChangeStorage, &Host::ChangeStorage, &Host::ChangeLibrary);
        side = &sides[input.Below(2)];
        choice = input.Byte();
        return action;
    }
    void Act() {
        const size_t kind = input.Below(24);
        const Action action = kind < 11   ? AnyActionOnHandle()
                              : kind < 19 ? AnyActionOnPath()
                                          : AnyActionOnVolume();
        (this->*action)();
    }

    template <class T>
    T* OrNull(T& target) {
        return input.Byte() < 0xFA ? &target : nullptr;
    }
    unsigned char Any(Of<unsigned char>) { return input.Byte(); }
    unsigned int* Any(Of<unsigned int*>) { return OrNull(number); }
    FatFileInfo* Any(Of<FatFileInfo*>) { return OrNull(info); }
    const FatFileInfo* Any(Of<const FatFileInfo*>) {
        info = {};
        info.attributes = input.Byte();
        info.lastWriteTimeHigh = input.Take(4);
        return OrNull(info);
    }
    FatVolume* Any(Of<FatVolume*>) {
        return choice < 0xE0 ? side->mounted : choice < 0xF0 ? side->last : nullptr;
    }
    FatVolumeInfo* Any(Of<FatVolumeInfo*>) {
        volumeInfo.size = choice % 16 != 0 ? sizeof(volumeInfo) : choice;
        return OrNull(volumeInfo);
    }

    // A handle: mostly one of the first, which are open.
    int Any(Of<int>) {
        static constexpr int wrongHandles[] = {-1, 31, 32, 159, 160, INT_MAX, INT_MIN};
        const uint8_t handle = input.Byte();
        return handle < 0xF0 ? handle % 5 : wrongHandles[handle % std::size(wrongHandles)];
    }

    // A size.
    unsigned int Any(Of<unsigned int>) {
        static constexpr uint32_t sizes[] = {0,      1,      31,     32,       127,        128,
                                             129,    511,    512,    513,      4095,       4097,
                                             8192,   16384,  32768,  65537,    262143,     262144,
                                             262145, 300000, 600000, 1U << 31, 0xFFFF0000, ~0U};
        const uint8_t form = input.Byte();
        return form < 0xC0 ? sizes[form % std::size(sizes)] : input.Take(form % 4 + 1U);
    }

    // A path; the last two stay.
    const char16_t* Any(Of<const char16_t*>) {
        std::u16string& path = paths[pathCount++ % 2];
        const uint8_t form = input.Byte();
        path.clear();
        if (form >= 0xFC) {
            for (size_t left = input.Below(40); left > 0; --left) {
                path += static_cast<char16_t>(form == 0xFC ? input.Take(2) % 0xFFFF : input.Byte());
            }
        } else if (form >= 0xF8) {  // deep, up to the limit and beyond
            const std::u16string name = input.Pick(entryNames);
            for (size_t left = 1 + input.Byte() / 2; left > 0; --left) {
                path += name + u'\\';
            }
        } else if (form >= 0xF4) {
            path.assign(240 + input.Below(24), form % 2 != 0 ? u'l' : u'\u00E9');
        } else {
            path.append(form / 16 % 2, u'\\');
            for (int left = form % 16 < 9 ? 1 : form % 16 < 14 ? 2 : 3; left > 0; --left) {
                path.append(input.Pick(entryNames)).append(left > 1 ? 1 : 0, u'\\');
            }
        }
        return form == 0xFF ? nullptr : path.c_str();
    }

    // Reads or writes, with memory of exactly the size that the call is told.
    void Transfer() {
        const int handle = Any(Of<int>());
        const uint8_t kind = input.Byte();
        std::vector<uint8_t> memory(std::min(Any(Of<unsigned int>()), 600000U));
        const auto count = static_cast<unsigned int>(memory.size());
        const long long offset = kind < 0x80
                                     ? input.OneOf(-1LL, 0, 1, 511, 512, 262143, 262144, 1LL << 31,
                                                   UINT_MAX, 1LL << 32, LLONG_MAX, LLONG_MIN)
                                     : input.Take(2);
        uint8_t* const buffer = OrNull(memory) ? memory.data() : nullptr;
        unsigned int* const done = OrNull(number);
        if (kind % 4 >= 2 && Fat_IsDir(handle)) {
            areListingsInStep = sides[0].disk->isSound = sides[1].disk->isSound = false;
        }
        number = 0;
        const std::function<void()> transfers[] = {
            [&] { Fat_ReadFile(handle, count, buffer, done); },
            [&] { Fat_ReadFileEx(handle, offset, count, buffer, done); },
            [&] { Fat_WriteFile(handle, count, buffer, done); },
            [&] { Fat_WriteFileEx(handle, offset, count, buffer, done); }};
        transfers[kind % 4]();
        Require(number <= count, "more bytes transferred than asked for\n");
    }

    void Unmount() {
        FatVolume* const volume = Any(Of<FatVolume*>());
        const bool isGone = Fat_Unmount(volume);
        for (Side& each : sides) {  // a stale pointer may be the other one's by now
            each.mounted = isGone && each.mounted == volume ? nullptr : each.mounted;
        }
    }

    // Now and then with a storage that a mounted volume has already, or none.
    void Mount() {
        if (choice >= 0xE0) {
            FatVolume* const second = Fat_Mount(side->mounted ? side->storage : nullptr, nullptr);
            Require(!second, "a storage with two volumes\n");
        } else if (!side->mounted) {
            side->storage = new HostileStorage(*side->disk);
            side->last = side->mounted = Fat_Mount(side->storage, nullptr);
            ++side->storagesMade;
            totals["mounts"] += side->mounted != nullptr;
        }
    }

    // What the host gets wrong from now on, or right again.
    void ChangeStorage() {
        HostileDisk& disk = *side->disk;
        const uint32_t kind = input.Byte(), amount = input.Byte();
        const FailurePlan plan = {.countdown = 1 + amount % 32,
                                  .onwards = kind >= 0x80,
                                  .reads = kind / 8 % 4 != 0,
                                  .writes = kind / 8 % 4 != 1,
                                  .tornWrites = amount >= 0x80};
        const std::function<void()> changes[] = {[&] { disk.Repair(); },
                                                 [&] { disk.failure = plan; },
                                                 [&] { disk.openResult = -1; },
                                                 [&] { disk.spoiltCallback = 1 + amount % 16; },
                                                 [&] { disk.mpbLie = 1 + kind * 256 + amount; },
                                                 [&] { disk.throwsInTransfers = true; },
                                                 [&] { disk.transfersHalf = true; },
                                                 [&] { disk.successStatus = INT_MAX; }};
        changes[kind % 8]();
        disk.isSound = false;
        disk.hasLied |= disk.mpbLie != 0 || disk.transfersHalf;
        ++totals["storages made hostile"];
    }

    // Ends the library, with volumes mounted or not, or starts it, once more or anew.
    void ChangeLibrary() {
        if (!mayEndLibrary || input.Byte() < 0xC0) {
            Fat_LibInitialize();
            return;
        }
        Fat_LibTerminate();
        for (Side& each : sides) {
            each.disk->isSound &= !each.mounted;
            each.mounted = nullptr;
        }
    }

    void CheckState() {
        Require(!Library || IsLibrarySound(), "the library's invariants\n");
        Require(!HostileDisk::hasWorkedWithin, "a call from within a storage did something\n");
        for (const Side& each : sides) {
            Require(!each.mounted || !areListingsInStep || AreListingsInStep(*each.mounted),
                    "a listing differs from its directory\n");
            Require(each.disk->hasLied || each.disk->counters.Breaches() == 0,
                    "access outside the volume or out of order\n");
        }
    }

    // Closes and unmounts everything, with storages that no longer fail, and judges what is left.
    void Finish() {
        for (Side& each : sides) {
            each.disk->failure = {};
            each.disk->throwsInTransfers = false;
            FatVolume* const volume = std::exchange(each.mounted, nullptr);
            Require(!volume || Fat_Unmount(volume) || Fat_Unmount(volume), "no unmount\n");
        }
        SetCurrentFileSystem(KeptVolume());
        for (int handle = 0; handle < 160; ++handle) {
            Fat_CloseFile(handle);
            Fat_CloseFindHandle(handle);
        }
        CheckState();
        for (const Side& each : sides) {
            const HostileDisk& disk = *each.disk;
            Require(each.storagesMade == disk.counters.destroyed, "a storage was not deleted\n");
            wrong += disk.isSound ? CheckImage(disk).Text() : "";
            totals["volumes judged"] += disk.isSound;
        }
        ++totals["scenarios"];
    }
};

}  // namespace

std::string RunScenario(std::span<const uint8_t> bytes, ScenarioTotals& totals,
                        uint64_t callsPerCheck) {
    return Host(bytes, totals).Run(callsPerCheck);
}

}  // namespace fatvol::test
