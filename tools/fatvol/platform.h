// What the tool needs of the operating system. One source file per system implements this header
// (platform_posix.cpp, ...); the build chooses. Text is UTF-8 throughout; on POSIX, local paths
// are the bytes that the user gave. Functions that return `int` give 0, or the system's error code
// for ErrorText.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace tool::platform {

std::string ErrorText(int errorCode);

// Why the last call on a standard stream failed.
int StreamError();

// ---- Process and terminal ---------------------------------------------------------------------

// The arguments after the program name. Also makes the standard streams carry bytes unchanged.
std::vector<std::string> PrepareProcess(int argc, char** argv);

enum class Stream { Output, Error };
bool IsTerminal(Stream stream);

// Width of the terminal in columns; 80 when it cannot be told.
int TerminalColumns(Stream stream);

// From here on a request to end the program only sets a flag, which Interrupted() tells.
void CatchInterrupts();
bool Interrupted();

// ---- Image files ------------------------------------------------------------------------------

enum class ImageAccess { ReadOnly, ReadWrite };

// An image file or a block device, locked against other fatvol processes while it is open: shared
// by readers, exclusive to a writer.
class ImageFile {
public:
    ImageFile() = default;
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;
    ~ImageFile();

    int Open(const std::string& path, ImageAccess access);

    // Of an open image; taken when it was opened.
    std::uint64_t SizeBytes() const { return sizeBytes_; }

    // Transfer all `count` bytes or fail; a failed transfer may have done part of its work.
    int Read(void* buffer, std::uint64_t positionBytes, std::uint64_t count);
    int Write(const void* buffer, std::uint64_t positionBytes, std::uint64_t count);

    // Brings what was written to the medium and closes. Nothing to do when no image is open.
    int Close();

private:
    std::intptr_t handle_ = -1;
    std::uint64_t sizeBytes_ = 0;
    bool written_ = false;
};

// ---- Local files ------------------------------------------------------------------------------

// Whether `path` names a directory, if need be through symbolic links.
bool IsDirectory(const std::string& path);

// A path split before its last component. The parent of a bare name is ".".
struct LocalPlace {
    std::string parent;
    std::string name;
    bool endsInSeparator;  // and can only mean a directory
};
LocalPlace SplitLocalPath(const std::string& path);

std::string JoinLocalPath(const std::string& directory, const std::string& name);

// Whether `name` is one component that names something new inside a directory, and nothing else.
bool IsSafeLocalName(const std::string& name);

enum class LocalKind { File, Directory, SymbolicLink, Other };

struct LocalStatus {
    LocalKind kind = LocalKind::Other;
    std::uint64_t sizeBytes = 0;
    std::time_t modified = 0;
};

// What stands at `path`. A symbolic link is looked through only when `links` says so.
enum class Links { Follow, Keep };
int ReadLocalStatus(const std::string& path, Links links, LocalStatus* status);

// The names in a directory, sorted, without "." and "..".
int ListLocalDirectory(const std::string& path, std::vector<std::string>* names);

// A local file, or standard input, to be read.
class LocalInput {
public:
    LocalInput() = default;
    LocalInput(const LocalInput&) = delete;
    LocalInput& operator=(const LocalInput&) = delete;
    ~LocalInput();

    int Open(const std::string& path);
    void OpenStandardInput();

    // Reads up to `count` bytes; fewer only at the end, or when the process is interrupted.
    int Read(void* buffer, std::size_t count, std::size_t* done);

private:
    std::intptr_t handle_ = -1;
    bool isOwned_ = false;
};

// A new local file. Unless Commit succeeds, the destructor leaves the directory as it was.
class LocalFile {
public:
    LocalFile() = default;
    LocalFile(const LocalFile&) = delete;
    LocalFile& operator=(const LocalFile&) = delete;
    ~LocalFile();

    int Write(const void* buffer, std::size_t count);
    int SetModificationTime(std::time_t time);

    // Closes the file and puts it in its place, replacing what it was allowed to replace.
    int Commit();

private:
    friend class LocalDirectory;
    std::intptr_t handle_ = -1;
    std::intptr_t directory_ = -1;  // of the LocalDirectory, which outlives this object
    std::string place_;             // the same as a path, on systems without handles to start from
    std::string writtenName_;       // differs from name_ while another file stands in its place
    std::string name_;
};

enum class Existing { Keep, Replace };

// A local directory held open, so that what is created in it lands there and nowhere else: its
// members take single names and never follow a symbolic link that stands in the place of one.
class LocalDirectory {
public:
    LocalDirectory() = default;
    LocalDirectory(const LocalDirectory&) = delete;
    LocalDirectory& operator=(const LocalDirectory&) = delete;
    ~LocalDirectory();

    // Opens a directory that the user named, if need be through symbolic links.
    int Open(const std::string& path);

    // Opens the subdirectory `name` of `parent`, making it when there is none.
    int OpenOrCreate(const LocalDirectory& parent, const std::string& name);

    // Creates `file`. When something of this name exists: fails, or replaces it at its Commit.
    int CreateFile(const std::string& name, Existing existing, LocalFile* file) const;

    // Whether the directory holds anything of this name, a broken symbolic link included.
    bool Contains(const std::string& name) const;

    int SetModificationTime(std::time_t time) const;

    // Whether OpenOrCreate made the directory.
    bool IsNew() const { return isNew_; }

    // For messages.
    const std::string& Path() const { return path_; }

private:
    std::intptr_t handle_ = -1;
    bool isNew_ = false;
    std::string path_;
    std::string place_;  // the path without links, on systems without handles to start from
};

// Whether an error code says that something of this name exists already.
bool IsExistsError(int errorCode);

}  // namespace tool::platform
