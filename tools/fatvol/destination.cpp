#include "destination.h"

#include "open_file.h"
#include "report.h"
#include "volume_path.h"

namespace tool {

Destination FindDestination(MountedImage& image, const std::string& argument,
                            std::size_t sourceCount) {
    const std::u16string path = ChangePathFromArgument(argument);
    const auto existing = FindEntry(image, path);
    if (existing && existing->IsDirectory()) {
        return {path, u"", false};
    }
    if (sourceCount > 1) {
        throw Failure{DisplayPath(path), "not a directory, which several files need"};
    }
    const std::u16string directory = ParentPath(path);
    const auto parent = FindEntry(image, directory);
    if (!parent || !parent->IsDirectory()) {
        throw Failure{DisplayPath(directory), parent ? "not a directory" : "no such directory"};
    }
    return {directory, std::u16string(LastName(path)), EndsInSeparator(argument)};
}

}  // namespace tool
