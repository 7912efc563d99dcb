#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <system_error>
#include <utility>

#include "platform.h"

namespace tool::platform {

namespace {

volatile std::sig_atomic_t interruptRequested = 0;

void NoteInterrupt(int) {
    interruptRequested = 1;
}

int FileOf(std::intptr_t handle) {
    return static_cast<int>(handle);
}

// A call that a signal cut short is made again.
template <typename Call>
auto Retrying(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

int SetFileTime(std::intptr_t handle, std::time_t time) {
    timespec times[2] = {};
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = time;
    return futimens(FileOf(handle), times) < 0 ? errno : 0;
}

// A file system without locks is no reason to refuse the image.
int LockImage(int file, ImageAccess access) {
    const int kind = access == ImageAccess::ReadWrite ? LOCK_EX : LOCK_SH;
    const int result = Retrying([&] { return flock(file, kind | LOCK_NB); });
    return result < 0 && errno == EWOULDBLOCK ? EBUSY : 0;
}

// On a block device, O_EXCL refuses to write beneath a mounted file system.
int WriteFlags(const std::string& path) {
    struct stat status {};
    const bool isDevice = stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode);
    return isDevice ? O_RDWR | O_EXCL : O_RDWR;
}

}  // namespace

std::string ErrorText(int errorCode) {
    return std::system_category().message(errorCode);
}

int StreamError() {
    return errno;
}

std::vector<std::string> PrepareProcess(int argc, char** argv) {
    return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

bool IsTerminal(Stream stream) {
    return isatty(stream == Stream::Output ? STDOUT_FILENO : STDERR_FILENO) == 1;
}

int TerminalColumns(Stream stream) {
    winsize size{};
    const int file = stream == Stream::Output ? STDOUT_FILENO : STDERR_FILENO;
    return ioctl(file, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = NoteInterrupt;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction previous {};
        sigaction(signal, nullptr, &previous);
        if (previous.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
}

bool Interrupted() {
    return interruptRequested != 0;
}

// ---- ImageFile --------------------------------------------------------------------------------

ImageFile::~ImageFile() {
    Close();
}

int ImageFile::Open(const std::string& path, ImageAccess access) {
    const int flags = access == ImageAccess::ReadWrite ? WriteFlags(path) : O_RDONLY;
    const int file = Retrying([&] { return open(path.c_str(), flags | O_CLOEXEC); });
    if (file < 0) {
        return errno;
    }
    handle_ = file;
    struct stat status {};
    if (fstat(file, &status) < 0) {
        return errno;
    }
    if (S_ISDIR(status.st_mode)) {
        return EISDIR;
    }
    const off_t end = lseek(file, 0, SEEK_END);
    if (end < 0) {
        return errno;
    }
    sizeBytes_ = static_cast<std::uint64_t>(end);
    return LockImage(file, access);
}

int ImageFile::Read(void* buffer, std::uint64_t positionBytes, std::uint64_t count) {
    auto* target = static_cast<unsigned char*>(buffer);
    while (count > 0) {
        const ssize_t done = Retrying([&] {
            return pread(FileOf(handle_), target, count, static_cast<off_t>(positionBytes));
        });
        if (done <= 0) {
            return done < 0 ? errno : EIO;
        }
        target += done;
        positionBytes += static_cast<std::uint64_t>(done);
        count -= static_cast<std::uint64_t>(done);
    }
    return 0;
}

int ImageFile::Write(const void* buffer, std::uint64_t positionBytes, std::uint64_t count) {
    const auto* source = static_cast<const unsigned char*>(buffer);
    written_ = true;
    while (count > 0) {
        const ssize_t done = Retrying([&] {
            return pwrite(FileOf(handle_), source, count, static_cast<off_t>(positionBytes));
        });
        if (done <= 0) {
            return done < 0 ? errno : EIO;
        }
        source += done;
        positionBytes += static_cast<std::uint64_t>(done);
        count -= static_cast<std::uint64_t>(done);
    }
    return 0;
}

int ImageFile::Close() {
    if (handle_ < 0) {
        return 0;
    }
    const int file = FileOf(std::exchange(handle_, -1));
    const bool synced =
        !std::exchange(written_, false) || Retrying([&] { return fsync(file); }) == 0;
    const int syncError = synced ? 0 : errno;
    const int closeError = close(file) < 0 && errno != EINTR ? errno : 0;
    return synced ? closeError : syncError;
}

// ---- Local paths ------------------------------------------------------------------------------

bool IsDirectory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

LocalPlace SplitLocalPath(const std::string& path) {
    const std::string trimmed = path.substr(0, path.find_last_not_of('/') + 1);
    const bool endsInSeparator = trimmed.size() < path.size();
    const std::size_t slash = trimmed.rfind('/');
    if (slash == std::string::npos) {
        return {".", trimmed, endsInSeparator};
    }
    const std::size_t parentLength = std::max<std::size_t>(slash, 1);
    return {trimmed.substr(0, parentLength), trimmed.substr(slash + 1), endsInSeparator};
}

std::string JoinLocalPath(const std::string& directory, const std::string& name) {
    return directory.empty() || directory.back() == '/' ? directory + name : directory + '/' + name;
}

bool IsSafeLocalName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

bool IsExistsError(int errorCode) {
    return errorCode == EEXIST;
}

namespace {

LocalKind KindOf(mode_t mode) {
    if (S_ISLNK(mode)) {
        return LocalKind::SymbolicLink;
    }
    if (S_ISDIR(mode)) {
        return LocalKind::Directory;
    }
    return S_ISREG(mode) ? LocalKind::File : LocalKind::Other;
}

}  // namespace

int ReadLocalStatus(const std::string& path, Links links, LocalStatus* status) {
    struct stat found {};
    const int flags = links == Links::Keep ? AT_SYMLINK_NOFOLLOW : 0;
    if (fstatat(AT_FDCWD, path.c_str(), &found, flags) < 0) {
        return errno;
    }
    *status = {KindOf(found.st_mode), static_cast<std::uint64_t>(found.st_size), found.st_mtime};
    return 0;
}

int ListLocalDirectory(const std::string& path, std::vector<std::string>* names) {
    struct CloseDirectory {
        void operator()(DIR* directory) const { closedir(directory); }
    };
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.c_str()));
    if (!directory) {
        return errno;
    }
    errno = 0;
    while (const dirent* entry = readdir(directory.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names->push_back(name);
        }
        errno = 0;
    }
    std::sort(names->begin(), names->end());
    return errno;
}

// ---- LocalInput -------------------------------------------------------------------------------

LocalInput::~LocalInput() {
    if (isOwned_) {
        close(FileOf(handle_));
    }
}

int LocalInput::Open(const std::string& path) {
    handle_ = Retrying([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); });
    isOwned_ = handle_ >= 0;
    return isOwned_ ? 0 : errno;
}

void LocalInput::OpenStandardInput() {
    handle_ = STDIN_FILENO;
}

int LocalInput::Read(void* buffer, std::size_t count, std::size_t* done) {
    auto* target = static_cast<unsigned char*>(buffer);
    *done = 0;
    while (*done < count && !Interrupted()) {
        const ssize_t piece = read(FileOf(handle_), target + *done, count - *done);
        if (piece == 0) {
            break;
        }
        if (piece > 0) {
            *done += static_cast<std::size_t>(piece);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// ---- LocalFile --------------------------------------------------------------------------------

LocalFile::~LocalFile() {
    if (handle_ >= 0) {
        close(FileOf(handle_));
    }
    if (!writtenName_.empty()) {
        unlinkat(FileOf(directory_), writtenName_.c_str(), 0);
    }
}

int LocalFile::Write(const void* buffer, std::size_t count) {
    const auto* source = static_cast<const unsigned char*>(buffer);
    while (count > 0) {
        const ssize_t done = Retrying([&] { return write(FileOf(handle_), source, count); });
        if (done < 0) {
            return errno;
        }
        source += done;
        count -= static_cast<std::size_t>(done);
    }
    return 0;
}

int LocalFile::SetModificationTime(std::time_t time) {
    return SetFileTime(handle_, time);
}

int LocalFile::Commit() {
    if (close(FileOf(std::exchange(handle_, -1))) < 0 && errno != EINTR) {
        return errno;
    }
    const int directory = FileOf(directory_);
    if (writtenName_ != name_ &&
        renameat(directory, writtenName_.c_str(), directory, name_.c_str()) < 0) {
        return errno;
    }
    writtenName_.clear();
    return 0;
}

// ---- LocalDirectory ---------------------------------------------------------------------------

LocalDirectory::~LocalDirectory() {
    if (handle_ >= 0) {
        close(FileOf(handle_));
    }
}

int LocalDirectory::Open(const std::string& path) {
    handle_ = Retrying([&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    path_ = path;
    return handle_ < 0 ? errno : 0;
}

int LocalDirectory::OpenOrCreate(const LocalDirectory& parent, const std::string& name) {
    const int parentFile = FileOf(parent.handle_);
    isNew_ = mkdirat(parentFile, name.c_str(), 0777) == 0;
    if (!isNew_ && errno != EEXIST) {
        return errno;
    }
    handle_ = Retrying([&] {
        return openat(parentFile, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    });
    path_ = JoinLocalPath(parent.path_, name);
    return handle_ < 0 ? errno : 0;
}

int LocalDirectory::CreateFile(const std::string& name, Existing existing, LocalFile* file) const {
    const auto create = [&](const std::string& newName) {
        const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        return Retrying([&] { return openat(FileOf(handle_), newName.c_str(), flags, 0666); });
    };
    std::string writtenName = name;
    int created = create(writtenName);
    if (created < 0 && errno == EEXIST && existing == Existing::Replace) {
        writtenName = ".fatvol-" + std::to_string(getpid()) + ".part";
        created = create(writtenName);
    }
    if (created < 0) {
        return errno;
    }
    file->handle_ = created;
    file->directory_ = handle_;
    file->writtenName_ = writtenName;
    file->name_ = name;
    return 0;
}

bool LocalDirectory::Contains(const std::string& name) const {
    struct stat status {};
    return fstatat(FileOf(handle_), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

int LocalDirectory::SetModificationTime(std::time_t time) const {
    return SetFileTime(handle_, time);
}

}  // namespace tool::platform
