#include "data/direct_transfer.h"

#include <algorithm>

#include "data/fat_file.h"
#include "data/remaining_transfer.h"
#include "storage/storage_io.h"
#include "volume/fat_volume.h"

namespace fatvol {
namespace {

using Procedure = FatStatus (*)(CFatStorage&, std::uint8_t*, std::uint64_t, std::uint32_t);

// The storage calls of one direction.
struct Direction {
    Procedure bytes;
    Procedure aligned;
};

constexpr Direction Reading{
    [](CFatStorage& storage, std::uint8_t* memory, std::uint64_t position, std::uint32_t count) {
        return ReadBytes(storage, memory, position, count);
    },
    [](CFatStorage& storage, std::uint8_t* memory, std::uint64_t position, std::uint32_t count) {
        return ReadBytesAligned(storage, memory, position, count);
    }};

constexpr Direction Writing{
    [](CFatStorage& storage, std::uint8_t* memory, std::uint64_t position, std::uint32_t count) {
        return WriteBytes(storage, memory, position, count);
    },
    [](CFatStorage& storage, std::uint8_t* memory, std::uint64_t position, std::uint32_t count) {
        return WriteBytesAligned(storage, memory, position, count);
    }};

// What is left of a transfer, and whose.
struct Remainder : RemainingTransfer {
    const CFatFile& file;
};

// The volume position of the cluster that holds the offset, and the bytes from that cluster's
// start to the end of its run.
FatStatus LookUp(const Remainder& rest, std::uint64_t* position, std::uint64_t* bytesInRun) {
    const FatVolume& volume = *rest.file.volume;
    const std::uint64_t index = rest.offset >> volume.clusterShift;
    std::uint32_t cluster = 0;
    std::uint32_t left = 0;
    if (index >= TotalClusters(rest.file.runs) ||
        !ClusterAt(rest.file.runs, static_cast<std::uint32_t>(index), &cluster, &left)) {
        return STATUS_FILE_CORRUPT_ERROR;
    }
    *position = ClusterPosition(volume, cluster);
    *bytesInRun = std::uint64_t{left} << volume.clusterShift;
    return STATUS_SUCCESS;
}

// Moves the next bytes from or to a volume position.
FatStatus Move(Remainder& rest, Procedure procedure, std::uint64_t position, std::uint32_t bytes) {
    const FatStatus status = procedure(*rest.file.volume->storage, rest.memory, position, bytes);
    rest.Advance(bytes);
    return status;
}

// From an offset inside a cluster to the end of that cluster's run.
FatStatus TransferHead(Remainder& rest, const Direction& direction) {
    const auto inCluster = static_cast<std::uint32_t>(rest.offset & rest.file.volume->clusterMask);
    std::uint64_t position = 0;
    std::uint64_t bytesInRun = 0;
    const FatStatus status = LookUp(rest, &position, &bytesInRun);
    if (Failed(status)) {
        return status;
    }
    const std::uint64_t bytes = std::min<std::uint64_t>(rest.length, bytesInRun - inCluster);
    return Move(rest, direction.bytes, position + inCluster, static_cast<std::uint32_t>(bytes));
}

// Whole clusters of one run.
FatStatus TransferWholeClusters(Remainder& rest, const Direction& direction) {
    std::uint64_t position = 0;
    std::uint64_t bytesInRun = 0;
    const FatStatus status = LookUp(rest, &position, &bytesInRun);
    if (Failed(status)) {
        return status;
    }
    const std::uint32_t wholeClusters = rest.length & ~rest.file.volume->clusterMask;
    const std::uint64_t bytes = rest.length > bytesInRun ? bytesInRun : wholeClusters;
    return Move(rest, direction.aligned, position, static_cast<std::uint32_t>(bytes));
}

// The last piece, of at most one cluster.
FatStatus TransferTail(Remainder& rest, const Direction& direction) {
    std::uint64_t position = 0;
    std::uint64_t bytesInRun = 0;
    const FatStatus status = LookUp(rest, &position, &bytesInRun);
    return Failed(status) ? status : Move(rest, direction.bytes, position, rest.length);
}

FatStatus TransferClusters(Remainder rest, const Direction& direction) {
    const FatVolume& volume = *rest.file.volume;
    FatStatus status = STATUS_SUCCESS;
    if ((rest.offset & volume.clusterMask) != 0) {
        status = TransferHead(rest, direction);
    }
    while (Succeeded(status) && rest.length > volume.bytesPerCluster) {
        status = TransferWholeClusters(rest, direction);
    }
    if (Succeeded(status) && rest.length > 0) {
        status = TransferTail(rest, direction);
    }
    return status;
}

FatStatus Transfer(Remainder rest, const Direction& direction) {
    if (rest.file.firstCluster == FixedRootCluster) {
        const FatVolume& volume = *rest.file.volume;
        return direction.bytes(*volume.storage, rest.memory,
                               volume.rootDirectoryPosition + rest.offset, rest.length);
    }
    return TransferClusters(rest, direction);
}

}  // namespace

FatStatus DirectRead(const CFatFile& file, std::uint64_t offset, std::uint32_t length,
                     void* destination) {
    return Transfer({{offset, length, static_cast<std::uint8_t*>(destination)}, file}, Reading);
}

FatStatus DirectWrite(const CFatFile& file, std::uint64_t offset, const void* source) {
    const std::uint64_t size = DataSize(file);
    if (offset >= size) {
        return STATUS_SUCCESS;
    }
    const std::uint64_t inBlock = offset & BlockMask;
    const auto length = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(size - offset, CacheBlockSize - inBlock));
    // Writing only reads the memory.
    auto* memory = const_cast<std::uint8_t*>(static_cast<const std::uint8_t*>(source));
    return Transfer({{offset, length, memory}, file}, Writing);
}

}  // namespace fatvol
