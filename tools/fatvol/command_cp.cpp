#include "commands.h"
#include "copy_in.h"
#include "open_file.h"
#include "run_on_image.h"
#include "volume_path.h"

namespace tool {

namespace {

// Throws Failure for a directory without -r, and for what would be copied onto or into itself.
void RequireCopyable(MountedImage& image, const CopyOptions& options,
                     const Destination& destination, const std::u16string& path) {
    const bool isDirectory = path.empty() || OpenFile(image, path).IsDirectory();
    if (isDirectory && !options.recursive) {
        throw Failure{DisplayPath(path), "is a directory (-r copies it with everything in it)"};
    }
    if (isDirectory &&
        IsWithin(SpelledPath(image, destination.directory), SpelledPath(image, path))) {
        throw Failure{DisplayPath(path), "cannot be copied into itself"};
    }
    if (!isDirectory) {
        const std::u16string_view name =
            destination.name.empty() ? LastName(path) : std::u16string_view(destination.name);
        const std::u16string target = JoinPath(destination.directory, name);
        if (FindEntry(image, target) && SpelledPath(image, target) == SpelledPath(image, path)) {
            throw Failure{DisplayPath(path), "cannot be copied onto itself"};
        }
    }
}

}  // namespace

int RunCp(const CopyOptions& options) {
    return ChangeImage(options.image, options.dryRun, [&](MountedImage& image, Report& report) {
        const Destination destination =
            FindDestination(image, options.target, options.sources.size());
        const auto load = [&](const std::string& source) {
            const std::u16string path = VolumePathFromArgument(source);
            RequireCopyable(image, options, destination, path);
            return LoadVolumeSource(image, report, path);
        };
        CopyIn(image, report, options, destination, LoadSources(report, options, load));
    });
}

}  // namespace tool
