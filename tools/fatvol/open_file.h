// A file or directory of the volume, open for as long as the object lives. Everything that fails
// throws Failure with the path and the cause.
#pragma once

#include <cstddef>
#include <functional>
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

private:
    [[noreturn]] void Fail(const std::string& cause) const;

    MountedImage& image_;
    const std::u16string path_;
    int handle_ = -1;
};

}  // namespace tool
