#include "storage/storage_io.h"

#include "api/fatvol.h"

namespace fatvol {

bool StorageCall::IsUnderWay(const CFatStorage* storage) {
    const StorageCall* call = innermost;
    while (call && call->storage != storage) {
        call = call->outer;
    }
    return call != nullptr;
}

namespace {

// Runs host code of a storage that returns a status.
template <class Code>
FatStatus Guarded(const CFatStorage& storage, Code code) {
    const StorageCall call(&storage);
    try {
        return static_cast<FatStatus>(code());
    } catch (...) {
        return STATUS_DRIVER_INTERNAL_ERROR;
    }
}

FatStatus Transfer(StorageTransferProc proc, CFatStorage& storage, const void* buffer,
                   std::uint64_t position, std::uint32_t count) {
    // One callback signature serves both directions; a write callback only reads the buffer.
    auto* bytes = const_cast<unsigned char*>(static_cast<const unsigned char*>(buffer));
    const auto transfer = [&] {
        return proc(&storage, bytes, static_cast<long long>(position), count);
    };
    return proc ? Guarded(storage, transfer) : STATUS_DRIVER_INTERNAL_ERROR;
}

}  // namespace

void DeleteStorage::operator()(CFatStorage* storage) const {
    const StorageCall call(storage);
    delete storage;
}

FatStatus ReadBytes(CFatStorage& storage, void* buffer, std::uint64_t position,
                    std::uint32_t count) {
    return Transfer(storage.ReadBytesProc, storage, buffer, position, count);
}

FatStatus WriteBytes(CFatStorage& storage, const void* buffer, std::uint64_t position,
                     std::uint32_t count) {
    return Transfer(storage.WriteBytesProc, storage, buffer, position, count);
}

FatStatus ReadBytesAligned(CFatStorage& storage, void* buffer, std::uint64_t position,
                           std::uint32_t count) {
    return Transfer(storage.ReadBytesAlignedProc, storage, buffer, position, count);
}

FatStatus WriteBytesAligned(CFatStorage& storage, const void* buffer, std::uint64_t position,
                            std::uint32_t count) {
    return Transfer(storage.WriteBytesAlignedProc, storage, buffer, position, count);
}

FatStatus ReadSectors(CFatStorage& storage, void* buffer, std::uint64_t sector,
                      std::uint32_t count) {
    return Transfer(storage.ReadSectorsProc, storage, buffer, sector, count);
}

FatStatus WriteSectors(CFatStorage& storage, const void* buffer, std::uint64_t sector,
                       std::uint32_t count) {
    return Transfer(storage.WriteSectorsProc, storage, buffer, sector, count);
}

FatStatus OpenStorage(CFatStorage& storage, void* parameter) {
    return Guarded(storage, [&] { return storage.Open(parameter); });
}

void CloseStorage(CFatStorage& storage) {
    (void)Guarded(storage, [&] { return storage.Close() ? 0 : -1; });
}

FatStatus ReadMpb(CFatStorage& storage, Mpb* mpb) {
    const auto fill = [&] {
        storage.GetMpbProc(storage.DbrBuffer, mpb);
        return 0;
    };
    return storage.GetMpbProc ? Guarded(storage, fill) : STATUS_DRIVER_INTERNAL_ERROR;
}

}  // namespace fatvol
