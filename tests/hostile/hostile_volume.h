// Volumes and storages made by somebody who means harm.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <stdexcept>

#include "support/fat_image.h"
#include "support/memory_storage.h"

namespace fatvol::test {

// The bytes that a scenario is decoded from; zeros follow them.
struct Input {
    std::span<const uint8_t> left;

    std::span<const uint8_t> Span(size_t byteCount) {
        const auto taken = left.first(std::min(byteCount, left.size()));
        left = left.subspan(taken.size());
        return taken;
    }
    uint32_t Take(size_t byteCount) {
        uint8_t bytes[4] = {};
        std::ranges::copy(Span(byteCount), bytes);
        return Get32(bytes);
    }
    uint8_t Byte() { return static_cast<uint8_t>(Take(1)); }
    size_t Below(size_t limit) { return Byte() % limit; }
    const auto& Pick(const auto& table) { return table[Below(std::size(table))]; }
    template <class T, class... More>
    T OneOf(T first, More... more) {
        return Pick(std::array<T, 1 + sizeof...(more)>{first, more...});
    }
};

// The volume says that it has as many bytes as the disk, and was made with `imageBytes`; from
// `endBytes` on every access fails.
struct HostileDisk : MemoryDisk {
    using MemoryDisk::MemoryDisk;

    uint64_t imageBytes = sizeBytes, endBytes = sizeBytes;
    bool isSound = false;                        // and has to be so at the end
    static inline uint64_t storageCalls = 0;     // of all disks
    static inline bool hasWorkedWithin = false;  // what is called from a storage
    // How the host breaks its word, none while 0:
    // 1 to 7: PrepareDevice leaves this one null; 8: it throws; 9 to 16: the same of IsDbrOk.
    uint32_t spoiltCallback = 0;
    uint32_t mpbLie = 0;  // byte of the record; in the next 8 bits what is added to it
    bool throwsInTransfers = false;
    bool transfersHalf = false;  // and says that it was all
    bool hasLied = false;        // at any time

    void Repair() {
        failure = {};
        openResult = 0;
        spoiltCallback = 0;
        throwsInTransfers = transfersHalf = false;
    }

    int Transfer(const Call& call, unsigned char* buffer, unsigned int sectorBytes) override {
        const uint64_t unit = call.kind >= CallKind::ReadSectors ? sectorBytes : 1;
        const uint64_t end = (static_cast<uint64_t>(call.position) + call.count) * unit;
        ++storageCalls;
        // The library is in the middle of a call.
        hasWorkedWithin |= Fat_LibTerminate() || Fat_OpenFile(u"F") >= 0 || Fat_CloseFile(0);
        if (throwsInTransfers) {
            throw std::runtime_error("host");
        }
        if (end > endBytes && end <= sizeBytes) {
            return -9;
        }
        if (transfersHalf && !IsWrite(call.kind)) {
            std::memset(buffer, 0xDB, call.count * unit);
        }
        const unsigned int count = transfersHalf ? call.count / 2 : call.count;
        return MemoryDisk::Transfer({call.kind, call.position, count}, buffer, sectorBytes);
    }
};

// Mounts another storage again when it is deleted.
struct MountingStorage : CFatStorage {
    explicit MountingStorage(CFatStorage* storage) : other(storage) {}
    ~MountingStorage() override { HostileDisk::hasWorkedWithin |= !!Fat_Mount(other, nullptr); }
    int OpenDevice(void*) override { return -1; }
    bool CloseDevice() override { return true; }
    void PrepareDevice() override {}

    CFatStorage* const other;
};

class HostileStorage : public MemoryStorage {
public:
    explicit HostileStorage(HostileDisk& hostile) : MemoryStorage(hostile), disk(hostile) {}
    ~HostileStorage() override { MountAgain(); }

    int OpenDevice(void* parameter) override {
        MountAgain();
        return MemoryStorage::OpenDevice(parameter);
    }

    bool CloseDevice() override {
        MountAgain();
        return MemoryStorage::CloseDevice();
    }

    void PrepareDevice() override {
        MemoryStorage::PrepareDevice();
        GetMpbProc = &LyingGetMpb;
        lie = disk.mpbLie;
        Spoil(disk.spoiltCallback);
    }

    bool IsDbrOk(void* bootSector) override {
        Spoil(disk.spoiltCallback - 8);
        return MemoryStorage::IsDbrOk(bootSector);
    }

private:
    void Spoil(uint32_t callback) {
        StorageTransferProc* const procs[] = {&ReadBytesProc,        &WriteBytesProc,
                                              &ReadBytesAlignedProc, &WriteBytesAlignedProc,
                                              &ReadSectorsProc,      &WriteSectorsProc};
        if (callback == 8) {
            throw std::runtime_error("host");
        } else if (callback == 7) {
            GetMpbProc = nullptr;
        } else if (callback >= 1 && callback <= 6) {
            *procs[callback - 1] = nullptr;
        }
    }

    // From within itself, and from within one that is deleted there at once.
    void MountAgain() {
        disk.hasWorkedWithin |=
            Fat_Mount(this, nullptr) || Fat_Mount(new MountingStorage(this), nullptr);
    }

    static void LyingGetMpb(void* bootSector, void* mpb) {
        _GetMpb(bootSector, mpb);
        auto& byte = static_cast<uint8_t*>(mpb)[lie % 28];
        byte = static_cast<uint8_t>(byte + (lie >> 8));
    }

    static inline uint32_t lie = 0;  // the callback is not told of which storage it is
    HostileDisk& disk;
};

// A volume of a kind, mutated as the input says: a count, and that many mutations. That of the raw
// kind stands in the input byte by byte.
std::unique_ptr<HostileDisk> MakeHostileVolume(size_t kind, Input& input);

// The names of entries that these volumes hold, and of some that they don't.
inline constexpr const char16_t* entryNames[] = {
    u"F", u"D", u"E", u"BIG", u"A long name of a file.txt", u"EMPTY", u"NEW", u"New long name"};

}  // namespace fatvol::test
