// The exported functions on files.
#include <algorithm>

#include "api/fatvol.h"
#include "api/file_info.h"
#include "api/library_state.h"
#include "api/path_argument.h"
#include "data/file_data.h"
#include "ops/create_by_path.h"
#include "ops/entry_write_back.h"
#include "ops/path_lookup.h"
#include "volume/fat_volume.h"
#include "volume/flush.h"
#include "volume/resize_file.h"

using namespace fatvol;

namespace {

// Takes a handle for the object that `operation` finds or makes for a path.
template <class Operation>
int OpenHandle(FatVolume* volume, const char16_t* path, Operation operation) {
    if (!volume || Library->files.IsFull()) {
        return NoHandle;
    }
    const int handle = Library->files.FindFree();
    FileReference file;
    if (!NormalizePath(path, PathBuffer) || Failed(operation(*volume, PathBuffer, &file))) {
        return NoHandle;
    }
    Library->files.Occupy(handle, std::move(file));
    return handle;
}

// ReadFileData or WriteFileData.
template <class Buffer>
using TransferFunction = FatStatus (*)(CFatFile&, std::uint64_t, std::uint32_t, Buffer,
                                       std::uint32_t*, std::uint64_t);

std::uint32_t Clip(unsigned int count, std::uint64_t left) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(count, left));
}

template <class Buffer>
bool TransferAtPosition(CFatFile* file, unsigned int count, Buffer buffer, unsigned int* done,
                        TransferFunction<Buffer> transfer) {
    if (!file || !done || (!buffer && count != 0)) {
        return false;
    }
    const std::uint64_t size = DataSize(*file);
    // The position has 32 bits, which a damaged directory's chain may exceed.
    const std::uint64_t end = std::min<std::uint64_t>(size, 0xFFFFFFFF);
    if (file->position >= end) {
        *done = 0;
        return true;
    }
    const std::uint32_t length = Clip(count, end - file->position);
    if (Failed(transfer(*file, file->position, length, buffer, done, size))) {
        return false;
    }
    file->position += *done;
    return true;
}

template <class Buffer>
bool TransferAtOffset(CFatFile* file, long long offset, unsigned int count, Buffer buffer,
                      unsigned int* done, TransferFunction<Buffer> transfer) {
    if (!file || !done || (!buffer && count != 0)) {
        return false;
    }
    const std::uint64_t size = DataSize(*file);
    if (offset < 0 || static_cast<std::uint64_t>(offset) >= size) {
        *done = 0;
        return false;
    }
    const auto position = static_cast<std::uint64_t>(offset);
    return Succeeded(transfer(*file, position, Clip(count, size - position), buffer, done, size));
}

// A directory shows no size, whatever its entry holds.
std::uint32_t ShownSize(const CFatFile& file) {
    return IsDirectory(file) ? 0 : FileSize(file.entry);
}

enum Origin : unsigned int { FromStart = 0, FromPosition = 1, FromEnd = 2 };

std::uint32_t MovedPosition(const CFatFile& file, unsigned int offset, unsigned int origin) {
    const std::uint32_t size = ShownSize(file);
    switch (origin) {
        case FromStart:
            return offset;
        case FromPosition:
            return file.position + offset;
        case FromEnd:
            return offset <= size ? size - offset : 0;
        default:
            return file.position;
    }
}

}  // namespace

int Fat_OpenFile(const char16_t* path) noexcept {
    return OpenHandle(CurrentVolume(), path, OpenByPath);
}

int Fat_CreateFile(const char16_t* path, unsigned int initialSize,
                   unsigned char attributes) noexcept {
    const auto create = [=](FatVolume& volume, const char16_t* normalised, FileReference* file) {
        return CreateByPath(volume, normalised, NewObject::File, initialSize, attributes, file);
    };
    return OpenHandle(ChangeableVolume(), path, create);
}

bool Fat_CloseFile(int handle) noexcept {
    if (!CanCloseFile(handle)) {
        return false;
    }
    LetGo(Library->files.Vacate(handle));
    return true;
}

bool Fat_ReadFile(int handle, unsigned int count, void* buffer, unsigned int* done) noexcept {
    return TransferAtPosition<void*>(FileOf(handle), count, buffer, done, ReadFileData);
}

bool Fat_WriteFile(int handle, unsigned int count, const void* buffer,
                   unsigned int* done) noexcept {
    return TransferAtPosition<const void*>(ChangeableFileOf(handle), count, buffer, done,
                                           WriteFileData);
}

bool Fat_ReadFileEx(int handle, long long offset, unsigned int count, void* buffer,
                    unsigned int* done) noexcept {
    return TransferAtOffset<void*>(FileOf(handle), offset, count, buffer, done, ReadFileData);
}

bool Fat_WriteFileEx(int handle, long long offset, unsigned int count, const void* buffer,
                     unsigned int* done) noexcept {
    return TransferAtOffset<const void*>(ChangeableFileOf(handle), offset, count, buffer, done,
                                         WriteFileData);
}

bool Fat_GetFileOffset(int handle, unsigned int* offset) noexcept {
    const CFatFile* file = FileOf(handle);
    if (!file || !offset) {
        return false;
    }
    *offset = file->position;
    return true;
}

bool Fat_SetFileOffset(int handle, unsigned int offset, unsigned int origin) noexcept {
    CFatFile* file = FileOf(handle);
    if (!file) {
        return false;
    }
    file->position = std::min(MovedPosition(*file, offset, origin), ShownSize(*file));
    return true;
}

bool Fat_GetFileSize(int handle, unsigned int* size) noexcept {
    const CFatFile* file = FileOf(handle);
    if (!file || !size) {
        return false;
    }
    *size = ShownSize(*file);
    return true;
}

bool Fat_IsDir(int handle) noexcept {
    const CFatFile* file = FileOf(handle);
    return file && IsDirectory(*file);
}

bool Fat_GetFileAttribute(int handle, FatFileInfo* info) noexcept {
    const CFatFile* file = FileOf(handle);
    if (!file || !info) {
        return false;
    }
    FillFromFile(*file, info);
    return true;
}

bool Fat_SetFileAttribute(int handle, const FatFileInfo* info) noexcept {
    CFatFile* file = ChangeableFileOf(handle);
    return file && info && Succeeded(WriteBackEntry(*file, WithFileInfo(file->entry, *info)));
}

bool Fat_SetFileSize(int handle, unsigned int size) noexcept {
    CFatFile* file = ChangeableFileOf(handle);
    const bool mayWait = file && IsDirectory(*file) && size > file->allocatedSize;
    return file && (!mayWait || Succeeded(LinkIfManyWait(*file->volume))) &&
           Succeeded(ResizeFile(*file, size, nullptr, nullptr));
}
