#include "open_file.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "listing.h"
#include "platform.h"
#include "report.h"
#include "space_budget.h"
#include "volume_path.h"

namespace tool {

namespace {

constexpr unsigned int kCopyBytes = 1U << 20;
constexpr const char* kNoPathForName = "the library takes no path with this name";

// The library answers a missing file and a damaged one alike.
std::string WhyNotOpened(const std::u16string& path) {
    if (path.empty()) {
        return "is the root directory";
    }
    if (path.size() > kMaxPathUnits) {
        return kPathTooLong;
    }
    if (!IsAddressable(LastName(path))) {
        return kNoPathForName;
    }
    for (const Entry& entry : CollectEntries(ParentPath(path))) {
        if (IsSameName(entry.Name(), LastName(path))) {
            return "cannot be opened: damaged";
        }
    }
    return "no such file or directory";
}

const std::u16string& PathOfListed(const std::u16string& path, const Entry& listed) {
    if (listed.Name().empty()) {
        throw Failure{DisplayPath(path), kNameNotConvertible};
    }
    if (!IsAddressable(listed.Name())) {
        throw Failure{DisplayPath(path), kNoPathForName};
    }
    return path;
}

}  // namespace

OpenFile::OpenFile(MountedImage& image, const std::u16string& path) : image_(image), path_(path) {
    image_.ForgetTrouble();
    handle_ = Fat_OpenFile(path_.c_str());
    if (handle_ < 0) {
        const std::string trouble = image_.CauseOr("");
        Fail(trouble.empty() ? WhyNotOpened(path_) : trouble);
    }
}

OpenFile::OpenFile(MountedImage& image, const std::u16string& path, const Entry& listed)
    : OpenFile(image, PathOfListed(path, listed)) {
    if (Info() != listed) {
        Fail("hidden by another entry of the same name");
    }
}

OpenFile::~OpenFile() {
    Fat_CloseFile(handle_);
}

bool OpenFile::IsDirectory() const {
    return Fat_IsDir(handle_);
}

Entry OpenFile::Info() const {
    FatFileInfo info{};
    if (!Fat_GetFileAttribute(handle_, &info)) {
        Fail("its attributes cannot be read");
    }
    return EntryFromInfo(info);
}

std::size_t OpenFile::Read(void* buffer, unsigned int count) {
    unsigned int done = 0;
    image_.ForgetTrouble();
    if (!Fat_ReadFile(handle_, count, buffer, &done)) {
        Fail(image_.CauseOr("cannot be read: damaged"));
    }
    return done;
}

void OpenFile::ReadToEnd(const Consume& consume) {
    const auto buffer = std::make_unique_for_overwrite<unsigned char[]>(kCopyBytes);
    unsigned long long doneBytes = 0;
    std::size_t count = 0;
    while ((count = Read(buffer.get(), kCopyBytes)) > 0) {
        consume(buffer.get(), count);
        doneBytes += count;
    }
    unsigned int sizeBytes = 0;
    if (!Fat_GetFileSize(handle_, &sizeBytes) || doneBytes < sizeBytes) {
        Fail("ends before its size: damaged");
    }
}

void OpenFile::SetAttributes(const Entry& entry) {
    const FatFileInfo info = InfoFromEntry(entry);
    image_.ForgetTrouble();
    if (!Fat_SetFileAttribute(handle_, &info)) {
        Fail(image_.CauseOr("its attributes cannot be set"));
    }
}

void OpenFile::Resize(std::uint32_t sizeBytes) {
    const std::uint32_t oldBytes = Info().sizeBytes;
    image_.ForgetTrouble();
    if (!Fat_SetFileSize(handle_, sizeBytes)) {
        const std::string trouble = image_.CauseOr("");
        SpaceBudget budget(image_);
        budget.RemoveFile(oldBytes);
        budget.AddFile(sizeBytes);
        Fail(trouble.empty() ? budget.ShortageOr("its size cannot be changed: damaged") : trouble);
    }
    try {
        WriteZeros(oldBytes, sizeBytes);
    } catch (const Failure&) {
        // To make a file shorter takes nothing that could be missing.
        Fat_SetFileSize(handle_, oldBytes);
        throw;
    }
}

void OpenFile::WriteZeros(std::uint32_t startBytes, std::uint32_t endBytes) {
    const std::vector<unsigned char> zeros(startBytes < endBytes ? kCopyBytes : 0);
    unsigned int done = 0;
    for (std::uint64_t at = startBytes; at < endBytes; at += done) {
        const auto count =
            static_cast<unsigned int>(std::min<std::uint64_t>(kCopyBytes, endBytes - at));
        image_.ForgetTrouble();
        if (platform::Interrupted()) {
            Fail("left as it was");
        }
        if (!Fat_WriteFileEx(handle_, static_cast<long long>(at), count, zeros.data(), &done) ||
            done == 0) {
            Fail(image_.CauseOr("cannot be written"));
        }
    }
}

void OpenFile::Fail(const std::string& cause) const {
    throw Failure{DisplayPath(path_), cause};
}

std::optional<Entry> FindEntry(MountedImage& image, const std::u16string& path) {
    if (path.empty()) {
        Entry root;
        root.attributes = kDirectory;
        return root;
    }
    image.ForgetTrouble();
    const int handle = Fat_OpenFile(path.c_str());
    if (handle < 0) {
        if (const std::string trouble = image.CauseOr(""); !trouble.empty()) {
            throw Failure{DisplayPath(path), trouble};
        }
        return std::nullopt;
    }
    FatFileInfo info{};
    Fat_GetFileAttribute(handle, &info);
    Fat_CloseFile(handle);
    return EntryFromInfo(info);
}

std::u16string SpelledPath(MountedImage& image, const std::u16string& path) {
    if (path.empty()) {
        return path;
    }
    const std::u16string name = OpenFile(image, path).Info().Name();
    return JoinPath(SpelledPath(image, ParentPath(path)), name);
}

}  // namespace tool
