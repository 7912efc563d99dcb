// A file being made on the volume.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "entry.h"
#include "mounted_image.h"

namespace tool {

// Unless it is kept, the file is removed when the object goes. Everything that fails throws
// Failure.
class NewFile {
public:
    // `attributes` are those bits of AttributeBit that a file can have. The directory must exist.
    NewFile(MountedImage& image, const std::u16string& path, std::uint32_t sizeBytes,
            unsigned int attributes);
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile();

    // Writes at the place where the last write ended, which must lie within the size.
    void Write(const unsigned char* bytes, std::size_t count);

    // The same, after making the file so much longer.
    void Append(const unsigned char* bytes, std::size_t count);

    // Ends the writing.
    void Close(VolumeTime modified);

    // Leaves the file, which is closed, where it is.
    void Keep() { isKept_ = true; }

    // Puts the file, which is closed, in the place of another one of its directory. When that one
    // is gone already and the new one cannot take its name, it is kept under its own.
    void Replace(const std::u16string& path);

private:
    [[noreturn]] void Fail(const std::string& fallback) const;

    MountedImage& image_;
    const std::u16string path_;
    std::uint64_t sizeBytes_;
    int handle_ = -1;
    bool isKept_ = false;
};

}  // namespace tool
