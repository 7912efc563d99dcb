// What is to be copied onto a volume, from local files or from the volume itself.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "entry.h"
#include "mounted_image.h"
#include "open_file.h"
#include "report.h"

namespace tool {

struct SourceNode {
    std::string origin;   // for messages
    std::u16string name;  // empty for a directory that has none, such as "." and the root
    bool isDirectory = false;
    bool isSizeKnown = true;
    std::uint64_t sizeBytes = 0;
    unsigned int attributes = 0;
    VolumeTime modified = kNoTime;
    // Of a file: hands all its bytes over. Throws Failure.
    std::function<void(const OpenFile::Consume&)> read;
    std::vector<SourceNode> children;
};

// A local file or a directory with everything below it; "-" is standard input. Throws Failure when
// there is no such file. What cannot be copied further down is reported and left out. Symbolic
// links are followed only where the user names one.
SourceNode LoadLocalSource(Report& report, const std::string& path);

// The same of the volume, which must outlive the node.
SourceNode LoadVolumeSource(MountedImage& image, Report& report, const std::u16string& path);

}  // namespace tool
