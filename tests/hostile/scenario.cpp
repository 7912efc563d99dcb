#include "scenario.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>

#include "api/library_state.h"
#include "dir/listing_check.h"
#include "dir/short_name.h"
#include "hostile_volume.h"
#include "platform/clock.h"
#include "support/image_builder.h"
#include "support/image_checker.h"
#include "volume/fat_volume.h"

namespace fatvol::test {
namespace {

constexpr uint64_t memoryBudget = 4U << 20, memoryPerByte = 16, callBudget = 200,
                   callsPerCluster = 4;

// A volume that stays mounted, because handles can only be closed while there is a current one.
FatVolume* KeptVolume() {
    static ImageBuilder builder({.fatType = 12, .clusterCount = 10});
    static FatVolume* kept = nullptr;
    if (!Library) {
        Fat_LibInitialize();
        kept = nullptr;
    }
    if (!kept) {
        kept = Fat_Mount(new MemoryStorage(builder.disk), nullptr);
    }
    return kept;
}

struct Side {
    HostileVolume volume;
    bool mustBeSound;
    FatVolume* mounted = nullptr;
    FatVolume* last = nullptr;  // what was mounted last, be it still or not
    HostileStorage* storage = nullptr;
};

class Host {
public:
    Host(Input& source, ScenarioTotals& sums, Checks which)
        : input(source), totals(sums), checks(which) {
        FixClockForTests(1700000000);
        ResetShortNameTailsForTests();
        const uint8_t first = input.Byte();
        mayEndLibrary = first >= 0xE0;
        const size_t kinds[] = {first % volumeKinds, input.Below(volumeKinds)};
        for (Side& side : sides) {
            side.volume = MakeHostileVolume(kinds[&side - sides.data()], input);
            side.mustBeSound = side.volume.mutations == 0;
            totals.mutations += side.volume.mutations;
            sizeBytes += side.volume.disk->endBytes;
            clusters += side.volume.disk->endBytes / side.volume.clusterBytes;
        }
    }
    std::string Run();

private:
    struct Action {
        const char* name;
        void (Host::*run)();
    };
    static const Action actions[];

    Input& input;
    ScenarioTotals& totals;
    const Checks checks;
    std::array<Side, 2> sides;
    uint64_t sizeBytes = 0, clusters = 0;  // of both
    bool areListingsInStep = true;         // until raw entries are written to a directory
    bool hasFailures = false;
    bool mayEndLibrary = false;  // which is slow, and therefore rare
    std::string wrong;
    std::u16string text, secondText;

    Side& AnySide() { return sides[input.Below(2)]; }
    int AnyHandle();
    uint32_t AnySize();
    const char16_t* AnyPath(std::u16string& path);
    template <class T>
    T* OrNull(T& target) {
        return input.Byte() < 0xFA ? &target : nullptr;
    }
    FatVolume* AnyVolume();
    uint64_t StorageCalls() const {
        return sides[0].volume.disk->storageCalls + sides[1].volume.disk->storageCalls;
    }
    void Complain(const std::string& what) { wrong += what + "\n"; }
    template <class F>
    auto Measured(F call);
    void CheckState();
    void Finish();

    void OpenFile();
    void CloseFile();
    void Transfer();
    void Position();
    void Tell();
    void SetAttributes();
    void SetSize();
    void CreateFile();
    void CreateDirectory();
    void Delete();
    void Rename();
    void Move();
    void FindFirst();
    void FindNext();
    void CloseFind();
    void VolumeInfo();
    void Flush();
    void Unmount();
    void Mount();
    void SetCurrent();
    void ChangeStorage();
    void ChangeLibrary();
};

int Host::AnyHandle() {
    static constexpr int wrongHandles[] = {-1, 31, 32, 159, 160, INT_MAX, INT_MIN};
    const uint8_t selector = input.Byte();
    return selector < 0xF0 ? selector % 5 : wrongHandles[selector % std::size(wrongHandles)];
}

uint32_t Host::AnySize() {
    static constexpr uint32_t sizes[] = {0,      1,      31,     32,       127,        128,
                                         129,    511,    512,    513,      4095,       4097,
                                         16384,  32768,  65537,  262143,   262144,     262145,
                                         300000, 524288, 600000, 1U << 31, 0xFFFF0000, 0xFFFFFFFF};
    const uint8_t selector = input.Byte();
    return selector < 0xC0 ? sizes[selector % std::size(sizes)]
                           : static_cast<uint32_t>(input.Take(selector % 4 + 1));
}

const char16_t* Host::AnyPath(std::u16string& path) {
    const uint8_t form = input.Byte();
    path.clear();
    if (form == 0xFF) {
        return nullptr;
    }
    if (form >= 0xFC) {
        for (size_t left = input.Below(40); left > 0; --left) {
            path += static_cast<char16_t>(form == 0xFC ? input.Take(2) : input.Byte());
        }
    } else if (form >= 0xF8) {  // deep, up to the limit and beyond
        const char16_t* const name = input.Pick(entryNames);
        for (size_t left = 1 + input.Byte() / 2; left > 0; --left) {
            path.append(name).append(1, u'\\');
        }
    } else if (form >= 0xF4) {
        path.assign(240 + input.Below(24), form % 2 != 0 ? u'l' : u'\u00E9');
    } else {
        path.append((form & 0x10) != 0 ? 1 : 0, u'\\');
        for (int left = (form & 0x0F) < 9 ? 1 : (form & 0x0F) < 14 ? 2 : 3; left > 0; --left) {
            path.append(input.Pick(entryNames)).append(left > 1 ? 1 : 0, u'\\');
        }
    }
    return path.c_str();
}

FatVolume* Host::AnyVolume() {
    Side& side = AnySide();
    return input.Byte() < 0xF0 ? side.mounted : input.Byte() < 0x80 ? side.last : nullptr;
}

// Makes one call, which has to keep within its budgets.
template <class F>
auto Host::Measured(F call) {
    const uint64_t allocated = AllocatedBytes(), storageCalls = StorageCalls();
    const auto result = call();
    const double memory = static_cast<double>(AllocatedBytes() - allocated) /
                          static_cast<double>(memoryBudget + memoryPerByte * sizeBytes);
    const double storage = static_cast<double>(StorageCalls() - storageCalls) /
                           static_cast<double>(callBudget + callsPerCluster * clusters);
    totals.mostMemory = std::max(totals.mostMemory, memory);
    totals.mostStorageCalls = std::max(totals.mostStorageCalls, storage);
    if (memory > 1 || storage > 1) {
        Complain("budgets: memory " + std::to_string(memory) + ", storage calls " +
                 std::to_string(storage));
    }
    if (checks == Checks::Trace) {
        std::printf(" = %lld", static_cast<long long>(result));
    }
    return result;
}

void Host::OpenFile() {
    const char16_t* const path = AnyPath(text);
    Measured([&] { return Fat_OpenFile(path); });
}
void Host::CloseFile() {
    const int handle = AnyHandle();
    Measured([&] { return Fat_CloseFile(handle); });
}

// Reads and writes, small amounts with memory of exactly the size that the call is told.
void Host::Transfer() {
    static constexpr uint32_t largest = 600000;
    static constexpr long long offsets[] = {
        -1, 0, 1, 511, 262143, 262144, 1LL << 31, (1LL << 32) - 1, 1LL << 32, LLONG_MAX, LLONG_MIN};
    const uint8_t kind = input.Byte();
    const int handle = AnyHandle();
    const uint32_t count = std::min(AnySize(), largest);
    const long long offset =
        kind < 0x80 ? input.Pick(offsets) : static_cast<long long>(input.Take(2));
    static uint8_t large[largest];
    const std::unique_ptr<uint8_t[]> small(new uint8_t[count < 5000 ? count : 0]());
    uint8_t* const buffer = input.Byte() >= 0xFA ? nullptr : count < 5000 ? small.get() : large;
    unsigned int done = 0;
    unsigned int* const told = OrNull(done);
    if (kind % 4 >= 2 && Fat_IsDir(handle)) {
        areListingsInStep = sides[0].mustBeSound = sides[1].mustBeSound = false;
    }
    Measured([&] {
        switch (kind % 4) {
            case 0:
                return Fat_ReadFile(handle, count, buffer, told);
            case 1:
                return Fat_ReadFileEx(handle, offset, count, buffer, told);
            case 2:
                return Fat_WriteFile(handle, count, buffer, told);
            default:
                return Fat_WriteFileEx(handle, offset, count, buffer, told);
        }
    });
    if (done > count) {
        Complain("more bytes transferred than asked for");
    }
}

void Host::Position() {
    const int handle = AnyHandle();
    const uint32_t offset = AnySize();
    const uint32_t origin = input.Byte() % 5;
    Measured([&] { return Fat_SetFileOffset(handle, offset, origin); });
}

void Host::Tell() {
    const int handle = AnyHandle();
    unsigned int number = 0;
    FatFileInfo info{};
    unsigned int* const told = OrNull(number);
    Measured([&] {
        return Fat_GetFileOffset(handle, told) + Fat_GetFileSize(handle, told) +
               Fat_GetFileAttribute(handle, told ? &info : nullptr) + Fat_IsDir(handle);
    });
}

void Host::SetAttributes() {
    const int handle = AnyHandle();
    FatFileInfo info{};
    info.attributes = input.Byte();
    info.creationTimeHigh = static_cast<unsigned int>(input.Take(4));
    info.lastWriteTimeHigh = info.creationTimeHigh ^ 0xFF;
    const FatFileInfo* const given = OrNull(info);
    Measured([&] { return Fat_SetFileAttribute(handle, given); });
}

void Host::SetSize() {
    const int handle = AnyHandle();
    const uint32_t size = AnySize();
    Measured([&] { return Fat_SetFileSize(handle, size); });
}

void Host::CreateFile() {
    const char16_t* const path = AnyPath(text);
    const uint32_t size = AnySize();
    const uint8_t attributes = input.Byte();
    Measured([&] { return Fat_CreateFile(path, size, attributes); });
}
void Host::CreateDirectory() {
    const char16_t* const path = AnyPath(text);
    const uint8_t attributes = input.Byte();
    Measured([&] { return Fat_CreateDir(path, attributes); });
}
void Host::Delete() {
    const char16_t* const path = AnyPath(text);
    Measured([&] { return Fat_DeleteFile(path); });
}
void Host::Rename() {
    const char16_t *const path = AnyPath(text), *const newPath = AnyPath(secondText);
    Measured([&] { return Fat_RenameFile(path, newPath); });
}
void Host::Move() {
    const char16_t *const path = AnyPath(text), *const destination = AnyPath(secondText);
    Measured([&] { return Fat_MoveFile(path, destination); });
}

void Host::FindFirst() {
    const bool isRoot = input.Byte() % 2 == 0;
    const char16_t* const path = AnyPath(text);
    FatFileInfo info{};
    FatFileInfo* const told = OrNull(info);
    Measured([&] { return isRoot ? Fat_FindFirstRootFile(told) : Fat_FindFirstFile(path, told); });
}
void Host::FindNext() {
    const int handle = AnyHandle();
    FatFileInfo info{};
    FatFileInfo* const told = OrNull(info);
    Measured([&] { return Fat_FindNextFile(handle, told); });
}
void Host::CloseFind() {
    const int handle = AnyHandle();
    Measured([&] { return Fat_CloseFindHandle(handle); });
}

void Host::VolumeInfo() {
    FatVolume* const volume = AnyVolume();
    FatVolumeInfo info{};
    info.size = input.Byte() < 0xF0 ? sizeof(info) : input.Byte();
    FatVolumeInfo* const told = OrNull(info);
    Measured([&] { return Fat_GetVolumeInfo(volume, told); });
}
void Host::Flush() {
    FatVolume* const volume = AnyVolume();
    Measured([&] { return Fat_FlushVolume(volume); });
}
void Host::SetCurrent() {
    FatVolume* const volume = AnyVolume();
    SetCurrentFileSystem(volume);
}

void Host::Unmount() {
    FatVolume* const volume = AnyVolume();
    const bool isGone = Measured([&] { return Fat_Unmount(volume); });
    for (Side& side : sides) {
        if (isGone && side.mounted == volume) {
            side.mounted = nullptr;
        }
    }
}

// Now and then with a storage that a mounted volume has already.
void Host::Mount() {
    Side& side = AnySide();
    const bool isAgain = input.Byte() >= 0xE0;
    if (side.mounted && !isAgain) {
        return;
    }
    HostileStorage* const storage = !isAgain       ? new HostileStorage(*side.volume.disk)
                                    : side.mounted ? side.storage
                                                   : nullptr;
    FatVolume* const volume = reinterpret_cast<FatVolume*>(
        Measured([&] { return reinterpret_cast<intptr_t>(Fat_Mount(storage, nullptr)); }));
    if (isAgain) {
        if (volume) {
            Complain("a storage with two volumes");
        }
        return;
    }
    side.storage = storage;
    side.last = side.mounted = volume;
    totals.mounts += volume != nullptr;
}

// What the host gets wrong from now on, or right again.
void Host::ChangeStorage() {
    Side& side = AnySide();
    HostileDisk& disk = *side.volume.disk;
    const uint8_t kind = input.Byte();
    side.mustBeSound = false;
    hasFailures = true;
    switch (kind % 8) {
        case 0:
            disk.failure = {};
            disk.openResult = 0;
            disk.spoiltCallback = 0;
            disk.throwsInTransfers = disk.transfersHalf = false;
            break;
        case 1:
            disk.failure = {.countdown = 1U + input.Byte() % 32,
                            .onwards = kind >= 0x80,
                            .reads = (kind & 0x08) != 0,
                            .writes = (kind & 0x08) == 0 || (kind & 0x10) != 0,
                            .tornWrites = (kind & 0x20) != 0,
                            .status = -1 - input.Byte()};
            break;
        case 2:
            disk.openResult = -1;
            break;
        case 3:
            disk.spoiltCallback = 1 + input.Byte() % 8;
            break;
        case 4:
            disk.hasLied = true;
            disk.mpbLie = 1 + static_cast<uint32_t>(input.Take(2));
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
    } else {
        Fat_LibTerminate();
        for (Side& side : sides) {
            side.mustBeSound = side.mustBeSound && !side.mounted;
            side.mounted = nullptr;
        }
    }
}

const Host::Action Host::actions[] = {{"OpenFile", &Host::OpenFile},
                                      {"OpenFile", &Host::OpenFile},
                                      {"OpenFile", &Host::OpenFile},
                                      {"CloseFile", &Host::CloseFile},
                                      {"Transfer", &Host::Transfer},
                                      {"Transfer", &Host::Transfer},
                                      {"Transfer", &Host::Transfer},
                                      {"Position", &Host::Position},
                                      {"Tell", &Host::Tell},
                                      {"SetAttributes", &Host::SetAttributes},
                                      {"SetSize", &Host::SetSize},
                                      {"SetSize", &Host::SetSize},
                                      {"CreateFile", &Host::CreateFile},
                                      {"CreateFile", &Host::CreateFile},
                                      {"CreateDir", &Host::CreateDirectory},
                                      {"Delete", &Host::Delete},
                                      {"Rename", &Host::Rename},
                                      {"Move", &Host::Move},
                                      {"FindFirst", &Host::FindFirst},
                                      {"FindNext", &Host::FindNext},
                                      {"CloseFind", &Host::CloseFind},
                                      {"VolumeInfo", &Host::VolumeInfo},
                                      {"Flush", &Host::Flush},
                                      {"Unmount", &Host::Unmount},
                                      {"Mount", &Host::Mount},
                                      {"SetCurrent", &Host::SetCurrent},
                                      {"SetCurrent", &Host::SetCurrent},
                                      {"ChangeStorage", &Host::ChangeStorage},
                                      {"ChangeLibrary", &Host::ChangeLibrary}};

void Host::CheckState() {
    if (Library && !IsLibrarySound()) {
        Complain("the library's invariants");
    }
    for (const Side& side : sides) {
        const HostileDisk& disk = *side.volume.disk;
        if (Library && side.mounted && areListingsInStep && !AreListingsInStep(*side.mounted)) {
            Complain("a listing differs from its directory");
        }
        if (!disk.hasLied && disk.counters.Breaches() != 0) {
            Complain("access outside the volume or out of order");
        }
    }
}

std::string Host::Run() {
    KeptVolume();
    Side& first = sides[0];
    first.storage = new HostileStorage(*first.volume.disk);
    first.last = first.mounted = Fat_Mount(first.storage, nullptr);
    totals.mounts += first.mounted != nullptr;
    CheckState();
    while (!input.IsEmpty() && wrong.empty()) {
        const Action& action = input.Pick(actions);
        (this->*action.run)();
        ++totals.calls;
        if (checks == Checks::Trace) {
            std::string narrow(text.begin(), text.end());
            std::printf(" %s %s\n", action.name, narrow.c_str());
        }
        if (checks != Checks::Rarely || totals.calls % 16 == 0) {
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
        const bool isUnmounted =
            !side.mounted || Fat_Unmount(side.mounted) || Fat_Unmount(side.mounted);
        if (!isUnmounted) {
            Complain("no unmount");
        }
    }
    SetCurrentFileSystem(kept);
    for (int handle = 0; handle < 160; ++handle) {
        Fat_CloseFile(handle);
        Fat_CloseFindHandle(handle);
    }
    CheckState();
    for (Side& side : sides) {
        const HostileDisk& disk = *side.volume.disk;
        totals.storageCalls += disk.storageCalls;
        if (disk.storagesMade != disk.counters.destroyed) {
            Complain("a storage was not deleted");
        }
        if (side.mustBeSound) {
            ++totals.checkedImages;
            wrong += CheckImage(disk).Text();
        }
    }
    totals.failedInTransfer += hasFailures;
    ++totals.scenarios;
}

}  // namespace

std::string RunScenario(std::span<const uint8_t> bytes, ScenarioTotals& totals, Checks checks) {
    Input input(bytes);
    return Host(input, totals, checks).Run();
}

bool IsSlowScenario(std::span<const uint8_t> bytes) {
    Input input(bytes);
    return input.Below(volumeKinds) >= smallVolumeKinds ||
           input.Below(volumeKinds) >= smallVolumeKinds;
}

}  // namespace fatvol::test
