#include "commands.h"
#include "for_each_path.h"
#include "open_file.h"
#include "run_on_image.h"
#include "volume_changes.h"

namespace tool {

namespace {

// Makes a directory and those missing above it.
void MakePath(MountedImage& image, const std::u16string& path) {
    const auto existing = FindEntry(image, path);
    if (!existing) {
        MakePath(image, ParentPath(path));
        CreateDirectory(image, path, 0);
    } else if (!existing->IsDirectory()) {
        throw Failure{DisplayPath(path), "a file of this name is in the way"};
    }
}

// The library would make the directories above, too.
void RequireParent(MountedImage& image, const std::u16string& path) {
    const std::u16string directory = ParentPath(path);
    const auto parent = FindEntry(image, directory);
    if (!parent || !parent->IsDirectory()) {
        throw Failure{DisplayPath(directory),
                      parent ? "not a directory" : "no such directory (-p makes it)"};
    }
}

}  // namespace

int RunMkdir(const MkdirOptions& options) {
    return ChangeImage(options.image, DryRun::No, [&](MountedImage& image, Report& report) {
        ForEachPath(report, options.paths, [&](const std::u16string& path) {
            if (options.withParents) {
                MakePath(image, path);
            } else {
                RequireParent(image, path);
                CreateDirectory(image, path, 0);
            }
            report.Done();
        });
    });
}

}  // namespace tool
