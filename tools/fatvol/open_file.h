// A file or directory of the volume, open for as long as the object lives. Everything that fails
// throws Failure with the path and the cause.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "entry.h"
#include "mounted_image.h"

namespace tool {

class OpenFile {
public:
    // Opens what a user named. The root directory cannot be opened.
    OpenFile(MountedImage& image, const std::u16string& path);

    // Opens what the listing of the directory above told of, and makes sure that the path leads to
    // just this entry.
    OpenFile(MountedImage& image, const std::u16string& path, const Entry& listed);

    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile();

    bool IsDirectory() const;
    Entry Info() const;

    // Hands the contents over, piece by piece, from where the last read ended. A directory gives
    // its raw entries. Reading a file that is shorter than its entry says fails.
    using Consume = std::function<void(const unsigned char* bytes, std::size_t count)>;
    void ReadToEnd(const Consume& consume);

    // Reads up to `count` bytes; fewer only at the end.
    std::size_t Read(void* buffer, unsigned int count);

    // Sets attributes and times to those of `entry`.
    void SetAttributes(const Entry& entry);

    // Makes the file longer, with zeros, or shorter. When it fails, or is interrupted, the size is
    // the old one.
    void Resize(std::uint32_t sizeBytes);

private:
    void WriteZeros(std::uint32_t startBytes, std::uint32_t endBytes);
    [[noreturn]] void Fail(const std::string& cause) const;

    MountedImage& image_;
    const std::u16string path_;
    int handle_ = -1;
};

// The entry at a path, nothing when it leads to none; the root is a directory without a name.
// Throws Failure when the storage fails.
std::optional<Entry> FindEntry(MountedImage& image, const std::u16string& path);

// An existing path in the letters of the volume, so that two ways of writing it compare equal.
std::u16string SpelledPath(MountedImage& image, const std::u16string& path);

}  // namespace tool
