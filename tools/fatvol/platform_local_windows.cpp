#include <windows.h>
#undef CreateFile  // also the name of a member here

#include <algorithm>
#include <utility>

#include "interrupt_windows.h"
#include "platform.h"
#include "wide_path.h"

namespace tool::platform {

namespace {

constexpr std::int64_t kTicksPerSecond = 10'000'000;  // of a FILETIME
constexpr std::int64_t kUnixEpochSeconds = 11'644'473'600;
constexpr DWORD kSharedByAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// Backup semantics open directories as well; a link is opened itself, not what it leads to.
constexpr DWORD kAnyKind = FILE_FLAG_BACKUP_SEMANTICS;
constexpr DWORD kAnyKindOrLink = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

int LastError() {
    return static_cast<int>(GetLastError());
}

HANDLE FileOf(std::intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

std::intptr_t OpenExisting(const std::wstring& path, DWORD access, DWORD sharing, DWORD flags) {
    return reinterpret_cast<std::intptr_t>(
        CreateFileW(path.c_str(), access, sharing, nullptr, OPEN_EXISTING, flags, nullptr));
}

struct OwnedHandle {
    std::intptr_t handle;
    ~OwnedHandle() {
        if (handle != -1) {
            CloseHandle(FileOf(handle));
        }
    }
};

std::wstring MemberPath(const std::string& place, const std::string& name) {
    return WideFromUtf8(JoinLocalPath(place, name));
}

int SetModified(std::intptr_t handle, std::time_t time) {
    const auto ticks = static_cast<std::uint64_t>((time + kUnixEpochSeconds) * kTicksPerSecond);
    const FILETIME modified = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    return SetFileTime(FileOf(handle), nullptr, nullptr, &modified) ? 0 : LastError();
}

std::time_t SecondsOf(const FILETIME& time) {
    const auto ticks =
        static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
    return ticks / kTicksPerSecond - kUnixEpochSeconds;
}

// Other reparse points, of files kept elsewhere for example, are what they stand for.
bool IsLink(std::intptr_t handle) {
    FILE_ATTRIBUTE_TAG_INFO info{};
    return GetFileInformationByHandleEx(FileOf(handle), FileAttributeTagInfo, &info,
                                        sizeof(info)) &&
           (info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (info.ReparseTag == IO_REPARSE_TAG_SYMLINK ||
            info.ReparseTag == IO_REPARSE_TAG_MOUNT_POINT);
}

bool IsSeparator(char character) {
    return character == '\\' || character == '/';
}

// The length of what names a drive and its root, which no parent lies above.
std::size_t RootLength(const std::string& path) {
    const std::size_t drive = path.size() >= 2 && path[1] == ':' ? 2 : 0;
    return drive < path.size() && IsSeparator(path[drive]) ? drive + 1 : drive;
}

// Names that mean a device in every directory, whatever follows the first dot.
bool IsDeviceName(const std::string& name) {
    std::string base = name.substr(0, name.find('.'));
    base.erase(base.find_last_not_of(' ') + 1);
    std::transform(base.begin(), base.end(), base.begin(), [](char letter) {
        return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    });
    for (const char* device : {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"}) {
        if (base == device) {
            return true;
        }
    }
    const std::string digit = base.substr(std::min<std::size_t>(base.size(), 3));
    const bool hasDigit = digit.size() == 1 ? digit[0] >= '0' && digit[0] <= '9'
                                            : digit == "\u00B9" || digit == "\u00B2" ||
                                                  digit == "\u00B3";  // superscripts count too
    return hasDigit && (base.starts_with("COM") || base.starts_with("LPT"));
}

}  // namespace

// ---- Local paths ------------------------------------------------------------------------------

bool IsDirectory(const std::string& path) {
    LocalStatus status;
    return ReadLocalStatus(path, Links::Follow, &status) == 0 &&
           status.kind == LocalKind::Directory;
}

LocalPlace SplitLocalPath(const std::string& path) {
    const std::size_t rootLength = RootLength(path);
    std::size_t end = path.size();
    while (end > rootLength && IsSeparator(path[end - 1])) {
        --end;
    }
    std::size_t nameStart = end;
    while (nameStart > rootLength && !IsSeparator(path[nameStart - 1])) {
        --nameStart;
    }
    std::size_t parentEnd = nameStart;
    while (parentEnd > rootLength && IsSeparator(path[parentEnd - 1])) {
        --parentEnd;
    }
    const std::string parent = path.substr(0, parentEnd);
    return {parent.empty() ? "." : parent, path.substr(nameStart, end - nameStart),
            end < path.size() || (end > 0 && IsSeparator(path[end - 1]))};
}

std::string JoinLocalPath(const std::string& directory, const std::string& name) {
    const bool needsNone =
        directory.empty() || IsSeparator(directory.back()) || directory.back() == ':';
    return needsNone ? directory + name : directory + '\\' + name;
}

bool IsSafeLocalName(const std::string& name) {
    constexpr std::string_view kRefused = "\\/:*?\"<>|";
    const bool hasRefused = std::any_of(name.begin(), name.end(), [&](char character) {
        return static_cast<unsigned char>(character) < ' ' ||
               kRefused.find(character) != kRefused.npos;
    });
    // Dots and spaces at the end would be taken off, and so would lead elsewhere.
    return !name.empty() && !hasRefused && name.back() != '.' && name.back() != ' ' &&
           !IsDeviceName(name);
}

bool IsExistsError(int errorCode) {
    return errorCode == ERROR_FILE_EXISTS || errorCode == ERROR_ALREADY_EXISTS;
}

int ReadLocalStatus(const std::string& path, Links links, LocalStatus* status) {
    const OwnedHandle file = {OpenExisting(WidePath(path), FILE_READ_ATTRIBUTES, kSharedByAll,
                                           links == Links::Keep ? kAnyKindOrLink : kAnyKind)};
    BY_HANDLE_FILE_INFORMATION info{};
    if (file.handle == -1 || (GetFileType(FileOf(file.handle)) == FILE_TYPE_DISK &&
                              !GetFileInformationByHandle(FileOf(file.handle), &info))) {
        return LastError();
    }
    if (GetFileType(FileOf(file.handle)) != FILE_TYPE_DISK) {
        *status = {};
        return 0;
    }
    const bool isDirectory = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool isLink = links == Links::Keep && IsLink(file.handle);
    *status = {isLink        ? LocalKind::SymbolicLink
               : isDirectory ? LocalKind::Directory
                             : LocalKind::File,
               std::uint64_t{info.nFileSizeHigh} << 32 | info.nFileSizeLow,
               SecondsOf(info.ftLastWriteTime)};
    return 0;
}

int ListLocalDirectory(const std::string& path, std::vector<std::string>* names) {
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW((WidePath(path) + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return LastError();
    }
    do {
        const std::string name = Utf8FromWide(found.cFileName);
        if (name != "." && name != "..") {
            names->push_back(name);
        }
    } while (FindNextFileW(search, &found));
    const int error = LastError();
    FindClose(search);
    std::sort(names->begin(), names->end());
    return error == ERROR_NO_MORE_FILES ? 0 : error;
}

// ---- LocalInput -------------------------------------------------------------------------------

LocalInput::~LocalInput() {
    if (isOwned_) {
        CloseHandle(FileOf(handle_));
    }
}

int LocalInput::Open(const std::string& path) {
    handle_ = OpenExisting(WidePath(path), GENERIC_READ, kSharedByAll, FILE_FLAG_SEQUENTIAL_SCAN);
    isOwned_ = handle_ != -1;
    return isOwned_ ? 0 : LastError();
}

void LocalInput::OpenStandardInput() {
    handle_ = reinterpret_cast<std::intptr_t>(GetStdHandle(STD_INPUT_HANDLE));
}

int LocalInput::Read(void* buffer, std::size_t count, std::size_t* done) {
    auto* target = static_cast<unsigned char*>(buffer);
    *done = 0;
    const InputWait wait;
    while (*done < count && !Interrupted()) {
        DWORD piece = 0;
        const auto wanted = static_cast<DWORD>(std::min<std::size_t>(count - *done, 1U << 30));
        if (!ReadFile(FileOf(handle_), target + *done, wanted, &piece, nullptr)) {
            const int error = LastError();
            const bool isEnd = error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF;
            return isEnd || error == ERROR_OPERATION_ABORTED ? 0 : error;
        }
        if (piece == 0) {
            break;
        }
        *done += piece;
    }
    return 0;
}

// ---- LocalFile --------------------------------------------------------------------------------

LocalFile::~LocalFile() {
    if (handle_ != -1) {
        CloseHandle(FileOf(handle_));
    }
    if (!writtenName_.empty()) {
        DeleteFileW(MemberPath(place_, writtenName_).c_str());
    }
}

int LocalFile::Write(const void* buffer, std::size_t count) {
    const auto* source = static_cast<const unsigned char*>(buffer);
    while (count > 0) {
        DWORD done = 0;
        const auto wanted = static_cast<DWORD>(std::min<std::size_t>(count, 1U << 30));
        if (!WriteFile(FileOf(handle_), source, wanted, &done, nullptr)) {
            return LastError();
        }
        source += done;
        count -= done;
    }
    return 0;
}

int LocalFile::SetModificationTime(std::time_t time) {
    return SetModified(handle_, time);
}

int LocalFile::Commit() {
    if (!CloseHandle(FileOf(std::exchange(handle_, -1)))) {
        return LastError();
    }
    if (writtenName_ != name_ &&
        !MoveFileExW(MemberPath(place_, writtenName_).c_str(), MemberPath(place_, name_).c_str(),
                     MOVEFILE_REPLACE_EXISTING)) {
        return LastError();
    }
    writtenName_.clear();
    return 0;
}

// ---- LocalDirectory ---------------------------------------------------------------------------

LocalDirectory::~LocalDirectory() {
    if (handle_ != -1) {
        CloseHandle(FileOf(handle_));
    }
}

// Without shared deletion nobody can rename the directory, nor one above it, while it is open.
int LocalDirectory::Open(const std::string& path) {
    handle_ = OpenExisting(WidePath(path), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE,
                           kAnyKind);
    path_ = path;
    if (handle_ == -1) {
        return LastError();
    }
    place_ = Utf8FromWide(PathOfHandle(handle_));
    if (place_.empty()) {  // not every file system tells
        place_ = Utf8FromWide(WidePath(path));
    }
    return IsDirectory(place_) ? 0 : ERROR_DIRECTORY;
}

int LocalDirectory::OpenOrCreate(const LocalDirectory& parent, const std::string& name) {
    const std::wstring path = MemberPath(parent.place_, name);
    isNew_ = CreateDirectoryW(path.c_str(), nullptr) != 0;
    if (!isNew_ && LastError() != ERROR_ALREADY_EXISTS) {
        return LastError();
    }
    const DWORD access = FILE_LIST_DIRECTORY | (isNew_ ? FILE_WRITE_ATTRIBUTES : 0);
    handle_ = OpenExisting(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, kAnyKindOrLink);
    path_ = JoinLocalPath(parent.path_, name);
    place_ = JoinLocalPath(parent.place_, name);
    if (handle_ == -1) {
        return LastError();
    }
    BY_HANDLE_FILE_INFORMATION info{};
    const bool isDirectory = GetFileInformationByHandle(FileOf(handle_), &info) &&
                             (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return isDirectory && !IsLink(handle_) ? 0 : ERROR_DIRECTORY;
}

int LocalDirectory::CreateFile(const std::string& name, Existing existing, LocalFile* file) const {
    const auto create = [&](const std::string& newName) {
        return ::CreateFileW(MemberPath(place_, newName).c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                             nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    };
    std::string writtenName = name;
    HANDLE created = create(writtenName);
    if (created == INVALID_HANDLE_VALUE && IsExistsError(LastError()) &&
        existing == Existing::Replace) {
        writtenName = ".fatvol-" + std::to_string(GetCurrentProcessId()) + ".part";
        created = create(writtenName);
    }
    if (created == INVALID_HANDLE_VALUE) {
        return LastError();
    }
    file->handle_ = reinterpret_cast<std::intptr_t>(created);
    file->directory_ = handle_;
    file->place_ = place_;
    file->writtenName_ = writtenName;
    file->name_ = name;
    return 0;
}

bool LocalDirectory::Contains(const std::string& name) const {
    return GetFileAttributesW(MemberPath(place_, name).c_str()) != INVALID_FILE_ATTRIBUTES;
}

int LocalDirectory::SetModificationTime(std::time_t time) const {
    return SetModified(handle_, time);
}

}  // namespace tool::platform
