#include "open_file.h"

#include <memory>

#include "listing.h"
#include "report.h"
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
        return "the path is too long: FAT paths end at 259 characters";
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

void OpenFile::Fail(const std::string& cause) const {
    throw Failure{DisplayPath(path_), cause};
}

}  // namespace tool
