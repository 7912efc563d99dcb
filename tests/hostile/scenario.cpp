#include "scenario.h"

#include <algorithm>
#include <array>
#include <climits>

#include "allocation_count.h"
#include "api/library_state.h"
#include "dir/listing_check.h"
#include "dir/short_name.h"
#include "hostile_volume.h"
#include "platform/clock.h"
#include "support/image_builder.h"
#include "support/image_checker.h"

namespace fatvol::test {
namespace {

struct Side {
    HostileVolume volume;
    FatVolume* mounted = nullptr;
    FatVolume* last = nullptr;  // what was mounted last, be it still or not
    HostileStorage* storage = nullptr;
};

class Host {
public:
    Host(Input& source, ScenarioTotals& sums) : input(source), totals(sums) {
        const uint8_t first = input.Byte();
        mayEndLibrary = first >= 0xE0;
        const size_t kinds[] = {first % volumeKinds, input.Below(volumeKinds)};
        for (Side& side : sides) {
            side.volume = MakeHostileVolume(kinds[&side - sides.data()], input);
            totals.hostileVolumes += !side.volume.isSound;
            // Enough for what a call keeps in any case, and for what it may need of a volume.
            const HostileDisk& disk = *side.volume.disk;
            memoryBudget += (2U << 20) + 4 * disk.endBytes;
            callBudget += 50 + disk.endBytes / std::max<uint64_t>(disk.clusterBytes, 128);
        }
    }
    std::string Run(Checks checks);

private:
    Input& input;
    ScenarioTotals& totals;
    std::array<Side, 2> sides;
    bool mayEndLibrary;  // which is slow, and therefore rare
    uint64_t memoryBudget = 0, callBudget = 0;
    bool areListingsInStep = true;  // until raw entries are written to a directory
    std::string wrong;
    std::u16string texts[2];

    int AnyHandle();
    uint32_t AnySize();
    const char16_t* AnyPath(std::u16string& path);
    template <class T>
    T* OrNull(T& target) {
        return input.Byte() < 0xFA ? &target : nullptr;
    }
    void Act();
    void ActOnHandle();
    void ActOnPath();
    void ActOnVolume();
    void Transfer(int handle);
    void Mount(Side& side, bool isAgain);
    void ChangeStorage(Side& side);
    void ChangeLibrary();
    void CheckState();
    void Finish();
};

int Host::AnyHandle() {
    static constexpr int wrongHandles[] = {-1, 31, 32, 159, 160, INT_MAX, INT_MIN};
    const uint8_t number = input.Byte();
    return number < 0xF0 ? number % 5 : wrongHandles[number % std::size(wrongHandles)];
}

uint32_t Host::AnySize() {
    static constexpr uint32_t sizes[] = {0,      1,      31,     32,       127,        128,
                                         129,    511,    512,    513,      4095,       4097,
                                         8192,   16384,  32768,  65537,    262143,     262144,
                                         262145, 300000, 600000, 1U << 31, 0xFFFF0000, ~0U};
    const uint8_t number = input.Byte();
    return number < 0xC0 ? sizes[number % std::size(sizes)]
                         : static_cast<uint32_t>(input.Take(number % 4 + 1U));
}

const char16_t* Host::AnyPath(std::u16string& path) {
    const uint8_t form = input.Byte();
    path.clear();
    if (form >= 0xFC) {
        for (size_t left = input.Below(40); left > 0; --left) {
            path += static_cast<char16_t>(form == 0xFC ? input.Take(2) % 0xFFFF : input.Byte());
        }
    } else if (form >= 0xF8) {  // deep, up to the limit and beyond
        const char16_t* const name = input.Pick(entryNames);
        for (size_t left = 1 + input.Byte() / 2; left > 0; --left) {
            path.append(name).append(1, u'\\');
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

void Host::Act() {
    const size_t kind = input.Below(24);
    kind < 11 ? ActOnHandle() : kind < 19 ? ActOnPath() : ActOnVolume();
}

void Host::ActOnHandle() {
    const size_t kind = input.Below(11);
    const int handle = AnyHandle();
    unsigned int number = 0;
    FatFileInfo info{};
    if (kind == 0) {
        Fat_CloseFile(handle);
    } else if (kind == 1) {
        Fat_CloseFindHandle(handle);
    } else if (kind <= 3) {
        Fat_FindNextFile(handle, OrNull(info));
    } else if (kind == 4) {
        Fat_GetFileOffset(handle, OrNull(number));
        Fat_GetFileSize(handle, OrNull(number));
        Fat_GetFileAttribute(handle, OrNull(info));
    } else if (kind == 5) {
        number = AnySize();
        Fat_SetFileOffset(handle, number, input.Byte() % 5);
    } else if (kind == 6) {
        info.attributes = input.Byte();
        info.lastWriteTimeHigh = static_cast<unsigned int>(input.Take(4));
        Fat_SetFileAttribute(handle, OrNull(info));
    } else if (kind <= 8) {
        Fat_SetFileSize(handle, AnySize());
    } else {
        Transfer(handle);
    }
}

// Reads or writes, small amounts with memory of exactly the size that the call is told.
void Host::Transfer(int handle) {
    static constexpr long long offsets[] = {
        -1, 0, 1, 511, 512, 262143, 262144, 1LL << 31, UINT_MAX, 1LL << 32, LLONG_MAX, LLONG_MIN};
    static uint8_t large[600000];
    const uint8_t kind = input.Byte();
    const uint32_t count = std::min<uint32_t>(AnySize(), sizeof(large));
    const long long offset =
        kind < 0x80 ? input.Pick(offsets) : static_cast<long long>(input.Take(2));
    std::vector<uint8_t> small(count < 5000 ? count : 0);
    uint8_t* const buffer = input.Byte() >= 0xFA ? nullptr : count < 5000 ? small.data() : large;
    unsigned int done = 0;
    unsigned int* const told = OrNull(done);
    if (kind % 4 >= 2 && Fat_IsDir(handle)) {
        areListingsInStep = sides[0].volume.isSound = sides[1].volume.isSound = false;
    }
    switch (kind % 4) {
        case 0:
            Fat_ReadFile(handle, count, buffer, told);
            break;
        case 1:
            Fat_ReadFileEx(handle, offset, count, buffer, told);
            break;
        case 2:
            Fat_WriteFile(handle, count, buffer, told);
            break;
        default:
            Fat_WriteFileEx(handle, offset, count, buffer, told);
    }
    wrong += done > count ? "more bytes transferred than asked for\n" : "";
}

void Host::ActOnPath() {
    const size_t kind = input.Below(12);
    const char16_t* const path = AnyPath(texts[0]);
    FatFileInfo info{};
    if (kind <= 3) {
        Fat_OpenFile(path);
    } else if (kind <= 5) {
        const uint32_t size = AnySize();
        Fat_CreateFile(path, size, input.Byte());
    } else if (kind == 6) {
        Fat_CreateDir(path, input.Byte());
    } else if (kind == 7) {
        Fat_DeleteFile(path);
    } else if (kind == 8) {
        Fat_RenameFile(path, AnyPath(texts[1]));
    } else if (kind == 9) {
        Fat_MoveFile(path, AnyPath(texts[1]));
    } else if (kind == 10) {
        Fat_FindFirstFile(path, OrNull(info));
    } else {
        Fat_FindFirstRootFile(OrNull(info));
    }
}

void Host::ActOnVolume() {
    const size_t kind = input.Below(10);
    Side& side = sides[input.Below(2)];
    const uint8_t number = input.Byte();
    FatVolume* const volume = number < 0xE0 ? side.mounted : number < 0xF0 ? side.last : nullptr;
    FatVolumeInfo info{};
    info.size = number % 16 != 0 ? sizeof(info) : number;
    if (kind == 0) {
        Fat_GetVolumeInfo(volume, OrNull(info));
    } else if (kind == 1) {
        Fat_FlushVolume(volume);
    } else if (kind <= 3) {
        SetCurrentFileSystem(volume);
    } else if (kind == 4) {
        const bool isGone = Fat_Unmount(volume);
        for (Side& each : sides) {  // a stale pointer may be the other one's by now
            each.mounted = isGone && each.mounted == volume ? nullptr : each.mounted;
        }
    } else if (kind <= 6) {
        Mount(side, number >= 0xE0);
    } else if (kind <= 8) {
        ChangeStorage(side);
    } else {
        ChangeLibrary();
    }
}

// Now and then with a storage that a mounted volume has already, or none.
void Host::Mount(Side& side, bool isAgain) {
    if (isAgain) {
        const bool isTwice = Fat_Mount(side.mounted ? side.storage : nullptr, nullptr) != nullptr;
        wrong += isTwice ? "a storage with two volumes\n" : "";
    } else if (!side.mounted) {
        side.storage = new HostileStorage(*side.volume.disk);
        side.last = side.mounted = Fat_Mount(side.storage, nullptr);
        totals.mounts += side.mounted != nullptr;
    }
}

// What the host gets wrong from now on, or right again.
void Host::ChangeStorage(Side& side) {
    HostileDisk& disk = *side.volume.disk;
    const uint32_t kind = input.Byte(), number = input.Byte();
    side.volume.isSound = false;
    ++totals.hostileStorages;
    switch (kind % 8) {
        case 0:
            disk.failure = {};
            disk.openResult = 0;
            disk.spoiltCallback = 0;
            disk.throwsInTransfers = disk.transfersHalf = false;
            break;
        case 1:
            disk.failure = {.countdown = 1 + number % 32,
                            .onwards = kind >= 0x80,
                            .reads = kind / 8 % 4 != 0,
                            .writes = kind / 8 % 4 != 1,
                            .tornWrites = number >= 0x80};
            break;
        case 2:
            disk.openResult = -1;
            break;
        case 3:
            disk.spoiltCallback = 1 + number % 8;
            break;
        case 4:
            disk.hasLied = true;
            disk.mpbLie = 1 + kind * 256 + number;
            break;
        case 5:
            disk.throwsInTransfers = true;
            break;
        case 6:
            disk.hasLied = disk.transfersHalf = true;
            break;
        default:
            disk.successStatus = INT_MAX;
    }
}

// Ends the library, with volumes mounted or not, or starts it, once more or anew.
void Host::ChangeLibrary() {
    if (!mayEndLibrary || input.Byte() < 0xC0) {
        Fat_LibInitialize();
        return;
    }
    Fat_LibTerminate();
    for (Side& side : sides) {
        side.volume.isSound = side.volume.isSound && !side.mounted;
        side.mounted = nullptr;
    }
}

void Host::CheckState() {
    wrong += Library && !IsLibrarySound() ? "the library's invariants\n" : "";
    for (const Side& side : sides) {
        const HostileDisk& disk = *side.volume.disk;
        const bool isInStep =
            !side.mounted || !areListingsInStep || AreListingsInStep(*side.mounted);
        const bool isWithin = disk.hasLied || disk.counters.Breaches() == 0;
        wrong += isInStep ? "" : "a listing differs from its directory\n";
        wrong += isWithin ? "" : "access outside the volume or out of order\n";
    }
}

// A volume that stays mounted, because handles can only be closed while there is a current one.
FatVolume* KeptVolume() {
    static ImageBuilder builder({.fatType = 12, .clusterCount = 10});
    static FatVolume* kept = nullptr;
    if (!Library) {
        Fat_LibInitialize();
        kept = nullptr;
    }
    return kept ? kept : kept = Fat_Mount(new MemoryStorage(builder.disk), nullptr);
}

std::string Host::Run(Checks checks) {
    FixClockForTests(1700000000);
    ResetShortNameTailsForTests();
    KeptVolume();
    const auto storageCalls = [&] {
        return sides[0].volume.disk->storageCalls + sides[1].volume.disk->storageCalls;
    };
    const auto share = [](uint64_t part, uint64_t budget) {
        return static_cast<double>(part) / static_cast<double>(budget);
    };
    for (uint64_t calls = 0; wrong.empty() && (calls == 0 || !input.left.empty()); ++calls) {
        const uint64_t bytesBefore = AllocatedBytes(), callsBefore = storageCalls();
        calls == 0 ? Mount(sides[0], false) : Act();
        const double memory = share(AllocatedBytes() - bytesBefore, memoryBudget);
        const double toStorage = share(storageCalls() - callsBefore, callBudget);
        totals.memory = std::max(totals.memory, memory);
        totals.callsToStorage = std::max(totals.callsToStorage, toStorage);
        wrong += memory > 1 || toStorage > 1 ? "memory or storage calls beyond the budget\n" : "";
        ++totals.calls;
        if (checks == Checks::EachCall || calls % 16 == 0) {
            CheckState();
        }
    }
    CheckState();
    Finish();
    return wrong;
}

// Closes and unmounts everything, with storages that work again, and judges what is left.
void Host::Finish() {
    FatVolume* const kept = KeptVolume();
    for (Side& side : sides) {
        side.volume.disk->failure = {};
        side.volume.disk->throwsInTransfers = false;
        FatVolume* const volume = std::exchange(side.mounted, nullptr);
        wrong += !volume || Fat_Unmount(volume) || Fat_Unmount(volume) ? "" : "no unmount\n";
    }
    SetCurrentFileSystem(kept);
    for (int handle = 0; handle < 160; ++handle) {
        Fat_CloseFile(handle);
        Fat_CloseFindHandle(handle);
    }
    CheckState();
    for (const Side& side : sides) {
        const HostileDisk& disk = *side.volume.disk;
        const bool isDeleted = disk.storagesMade == disk.counters.destroyed;
        wrong += isDeleted ? "" : "a storage was not deleted\n";
        wrong += side.volume.isSound ? CheckImage(disk).Text() : "";
        totals.soundImages += side.volume.isSound;
        totals.storageCalls += disk.storageCalls;
    }
    ++totals.scenarios;
}

}  // namespace

std::string RunScenario(std::span<const uint8_t> bytes, ScenarioTotals& totals, Checks checks) {
    Input input{bytes};
    return Host(input, totals).Run(checks);
}

}  // namespace fatvol::test
