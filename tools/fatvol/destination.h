// Where on the volume a command puts what it copies or moves.
#pragma once

#include <cstddef>
#include <string>

#include "mounted_image.h"

namespace tool {

struct Destination {
    std::u16string directory;  // exists
    std::u16string name;       // for the one source; empty: each keeps its own
    bool needsDirectory;       // the argument ended in a slash: only a directory can get the name
};

// As cp does it: into a directory that exists, otherwise the one source gets the path given. Throws
// Failure when there are several sources then, or no directory that could hold the name.
Destination FindDestination(MountedImage& image, const std::string& argument,
                            std::size_t sourceCount);

}  // namespace tool
