#include "volume/fat_entry.h"

#include "storage/little_endian.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

struct EntryPlace {
    FatBlock* block;
    std::uint8_t* bytes;
};

// A FAT12 is one block: entries of one and a half bytes.
struct Entry12 {
    static FatStatus Find(FatVolume& volume, std::uint32_t cluster, EntryPlace* place) {
        const FatStatus status = GetFatBlock(volume, 0, 0, &place->block);
        if (Succeeded(status)) {
            place->bytes = place->block->data + ByteInBlock(cluster);
        }
        return status;
    }
    static std::uint32_t ByteInBlock(std::uint32_t cluster) { return cluster * 3 / 2; }
    static std::uint32_t Load(const std::uint8_t* bytes, std::uint32_t cluster) {
        const std::uint32_t word = LoadU16(bytes);
        return cluster % 2 != 0 ? word >> 4 : word & 0x0FFF;
    }
    static void Store(std::uint8_t* bytes, std::uint32_t cluster, std::uint32_t value) {
        const std::uint32_t word = LoadU16(bytes);
        const std::uint32_t changed =
            cluster % 2 != 0 ? (word & 0x000F) + (value << 4) : (word & 0xF000) + (value & 0x0FFF);
        StoreU16(bytes, static_cast<std::uint16_t>(changed));
    }
};

template <std::uint32_t Width>
std::uint32_t ByteOfWhole(std::uint32_t cluster) {
    return cluster % (FatBlockSize / Width) * Width;
}

template <std::uint32_t Width>
FatStatus FindWholeBytes(FatVolume& volume, std::uint32_t cluster, EntryPlace* place) {
    const FatTable& table = volume.fatTable;
    const std::uint32_t index = cluster >> table.entryShift;
    const FatStatus status =
        GetFatBlock(volume, index, index << table.blockSectorShift, &place->block);
    if (Succeeded(status)) {
        place->bytes = place->block->data + ByteOfWhole<Width>(cluster);
    }
    return status;
}

struct Entry16 {
    static constexpr auto Find = FindWholeBytes<2>;
    static constexpr auto ByteInBlock = ByteOfWhole<2>;
    static std::uint32_t Load(const std::uint8_t* bytes, std::uint32_t) { return LoadU16(bytes); }
    static void Store(std::uint8_t* bytes, std::uint32_t, std::uint32_t value) {
        StoreU16(bytes, static_cast<std::uint16_t>(value));
    }
};

// All 32 bits count, on reading and on writing.
struct Entry32 {
    static constexpr auto Find = FindWholeBytes<4>;
    static constexpr auto ByteInBlock = ByteOfWhole<4>;
    static std::uint32_t Load(const std::uint8_t* bytes, std::uint32_t) { return LoadU32(bytes); }
    static void Store(std::uint8_t* bytes, std::uint32_t, std::uint32_t value) {
        StoreU32(bytes, value);
    }
};

template <class Entry>
FatStatus Get(FatVolume& volume, std::uint32_t cluster, std::uint32_t* value) {
    EntryPlace place{};
    const FatStatus status = Entry::Find(volume, cluster, &place);
    if (Succeeded(status)) {
        *value = Entry::Load(place.bytes, cluster);
    }
    return status;
}

template <class Entry>
FatStatus Set(FatVolume& volume, std::uint32_t cluster, std::uint32_t value) {
    EntryPlace place{};
    FatStatus status = Entry::Find(volume, cluster, &place);
    if (Failed(status)) {
        return status;
    }
    status = ReserveDirtyPlace(volume, *place.block);
    if (Failed(status)) {
        return status;
    }
    Entry::Store(place.bytes, cluster, value);
    return MarkFatBlockDirty(volume, *place.block);
}

template <class Entry>
bool Force(FatVolume& volume, std::uint32_t cluster, std::uint32_t value) {
    EntryPlace place{};
    if (Failed(Entry::Find(volume, cluster, &place))) {
        return false;
    }
    Entry::Store(place.bytes, cluster, value);
    ForceFatBlockDirty(volume, *place.block);
    return true;
}

template <class Entry>
std::uint32_t LoadOfBlock(const FatBlock& block, std::uint32_t cluster) {
    return Entry::Load(block.data + Entry::ByteInBlock(cluster), cluster);
}

}  // namespace

FatEntryFunctions EntryFunctionsOf(std::uint32_t fatType) {
    switch (fatType) {
        case 12:
            return {Get<Entry12>, Set<Entry12>, Force<Entry12>, LoadOfBlock<Entry12>};
        case 16:
            return {Get<Entry16>, Set<Entry16>, Force<Entry16>, LoadOfBlock<Entry16>};
        default:
            return {Get<Entry32>, Set<Entry32>, Force<Entry32>, LoadOfBlock<Entry32>};
    }
}

FatStatus GetFatEntry(FatVolume& volume, std::uint32_t cluster, std::uint32_t* value) {
    return volume.fatTable.getFatEntry(volume, cluster, value);
}

FatStatus SetFatEntry(FatVolume& volume, std::uint32_t cluster, std::uint32_t value) {
    return volume.fatTable.setFatEntry(volume, cluster, value);
}

bool ForceFatEntry(FatVolume& volume, std::uint32_t cluster, std::uint32_t value) {
    return EntryFunctionsOf(volume.fatType).force(volume, cluster, value);
}

}  // namespace fatvol
