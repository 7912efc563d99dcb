#include <windows.h>
#undef CreateFile  // also the name of a member in platform.h

#include <algorithm>
#include <utility>

#include "platform.h"
#include "wide_path.h"

namespace tool::platform {

namespace {

constexpr std::uint64_t kLargestTransfer = 1U << 30;  // a multiple of every sector size

HANDLE FileOf(std::intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

OVERLAPPED PlaceOf(std::uint64_t positionBytes) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(positionBytes);
    place.OffsetHigh = static_cast<DWORD>(positionBytes >> 32);
    return place;
}

// Transfers piece by piece with `call`, one of the two functions of the system.
template <typename Call, typename Byte>
int TransferAll(Call call, std::intptr_t handle, Byte* bytes, std::uint64_t positionBytes,
                std::uint64_t count) {
    while (count > 0) {
        OVERLAPPED place = PlaceOf(positionBytes);
        DWORD done = 0;
        const auto wanted = static_cast<DWORD>(std::min(count, kLargestTransfer));
        if (!call(FileOf(handle), bytes, wanted, &done, &place)) {
            return static_cast<int>(GetLastError());
        }
        if (done == 0) {
            return ERROR_HANDLE_EOF;
        }
        bytes += done;
        positionBytes += done;
        count -= done;
    }
    return 0;
}

}  // namespace

ImageFile::~ImageFile() {
    Close();
}

// The lock is what the file is shared for: with readers by a reader, with nobody by a writer. A
// disk or volume device, which takes whole sectors only, is refused for want of a file size.
int ImageFile::Open(const std::string& path, ImageAccess access) {
    const bool writes = access == ImageAccess::ReadWrite;
    const HANDLE file = CreateFileW(
        WidePath(path).c_str(), writes ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
        writes ? 0 : FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return static_cast<int>(GetLastError());
    }
    handle_ = reinterpret_cast<std::intptr_t>(file);
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size)) {
        return static_cast<int>(GetLastError());
    }
    sizeBytes_ = static_cast<std::uint64_t>(size.QuadPart);
    return 0;
}

int ImageFile::Read(void* buffer, std::uint64_t positionBytes, std::uint64_t count) {
    return TransferAll(ReadFile, handle_, static_cast<unsigned char*>(buffer), positionBytes,
                       count);
}

int ImageFile::Write(const void* buffer, std::uint64_t positionBytes, std::uint64_t count) {
    written_ = true;
    return TransferAll(WriteFile, handle_, static_cast<const unsigned char*>(buffer), positionBytes,
                       count);
}

int ImageFile::Close() {
    if (handle_ == -1) {
        return 0;
    }
    const HANDLE file = FileOf(std::exchange(handle_, -1));
    const bool isSynced = !std::exchange(written_, false) || FlushFileBuffers(file);
    const int syncError = isSynced ? 0 : static_cast<int>(GetLastError());
    const int closeError = CloseHandle(file) ? 0 : static_cast<int>(GetLastError());
    return isSynced ? closeError : syncError;
}

}  // namespace tool::platform
