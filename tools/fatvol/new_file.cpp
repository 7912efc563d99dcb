#include "new_file.h"

#include <fmt/format.h>

#include <utility>

#include "open_file.h"
#include "report.h"
#include "space_budget.h"
#include "volume_changes.h"
#include "volume_path.h"

namespace tool {

NewFile::NewFile(MountedImage& image, const std::u16string& path, std::uint32_t sizeBytes,
                 unsigned int attributes)
    : image_(image), path_(path), sizeBytes_(sizeBytes) {
    RequireUsableName(path);
    image_.ForgetTrouble();
    handle_ = Fat_CreateFile(path.c_str(), sizeBytes, static_cast<unsigned char>(attributes));
    if (handle_ < 0) {
        SpaceBudget budget(image);
        budget.AddFile(sizeBytes);
        throw Failure{DisplayPath(path), WhyNotCreated(image, path, budget)};
    }
}

NewFile::~NewFile() {
    if (handle_ >= 0) {
        Fat_CloseFile(handle_);
    }
    if (!isKept_) {
        Fat_DeleteFile(path_.c_str());
    }
}

void NewFile::Write(const unsigned char* bytes, std::size_t count) {
    unsigned int done = 0;
    image_.ForgetTrouble();
    if (!Fat_WriteFile(handle_, static_cast<unsigned int>(count), bytes, &done) || done < count) {
        Fail("cannot be written");
    }
}

void NewFile::Append(const unsigned char* bytes, std::size_t count) {
    const std::uint64_t maxBytes = MaxFileBytes(image_.Info());
    if (sizeBytes_ + count > maxBytes) {
        throw Failure{DisplayPath(path_), TooLargeText(maxBytes)};
    }
    image_.ForgetTrouble();
    if (!Fat_SetFileSize(handle_, static_cast<unsigned int>(sizeBytes_ + count))) {
        SpaceBudget budget(image_);
        budget.RemoveFile(sizeBytes_);
        budget.AddFile(sizeBytes_ + count);
        Fail(budget.ShortageOr("cannot be made longer"));
    }
    sizeBytes_ += count;
    Write(bytes, count);
}

void NewFile::Close(VolumeTime modified) {
    FatFileInfo info{};
    image_.ForgetTrouble();
    bool isSet = Fat_GetFileAttribute(handle_, &info);
    Entry entry = EntryFromInfo(info);
    entry.modified = modified;
    info = InfoFromEntry(entry);
    isSet = isSet && Fat_SetFileAttribute(handle_, &info);
    if (!Fat_CloseFile(std::exchange(handle_, -1)) || !isSet) {
        Fail("its time cannot be set");
    }
}

void NewFile::Replace(const std::u16string& path) {
    image_.ForgetTrouble();
    if (!Fat_DeleteFile(path.c_str())) {
        throw Failure{DisplayPath(path), image_.CauseOr("cannot be removed: damaged")};
    }
    Keep();
    try {
        RenameEntry(image_, path_, LastName(path));
    } catch (const Failure& failure) {
        throw Failure{DisplayPath(path),
                      fmt::format("replaced, but its new contents are called {}: {}",
                                  DisplayPath(path_), failure.cause)};
    }
}

void NewFile::Fail(const std::string& fallback) const {
    throw Failure{DisplayPath(path_), image_.CauseOr(fallback)};
}

}  // namespace tool
