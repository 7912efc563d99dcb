#include <algorithm>

#include "commands.h"
#include "destination.h"
#include "directory_tree.h"
#include "for_each_path.h"
#include "open_file.h"
#include "run_on_image.h"
#include "volume_changes.h"

namespace tool {

namespace {

std::size_t DeepestUnits(const TreeNode& node) {
    std::size_t below = 0;
    for (const TreeNode& child : node.children) {
        below = std::max(below, 1 + child.entry.Name().size() + DeepestUnits(child));
    }
    return below;
}

// What is below a directory would get too long a path, under which nothing could reach it.
void RequireReachableBelow(MountedImage& image, Report& report, const std::u16string& path,
                           const std::u16string& newPath) {
    if (newPath.size() > path.size() &&
        newPath.size() + DeepestUnits(LoadTree(image, report, path)) > kMaxPathUnits) {
        throw Failure{DisplayPath(path), "what is below it would get too long a path"};
    }
}

void MoveOne(MountedImage& image, Report& report, const Destination& destination,
             const std::u16string& path) {
    const Entry entry = OpenFile(image, path).Info();
    const std::u16string newName = destination.name.empty() ? entry.Name() : destination.name;
    const std::u16string newPath = JoinPath(destination.directory, newName);
    const std::u16string spelled = SpelledPath(image, path);
    const std::u16string spelledDirectory = SpelledPath(image, destination.directory);
    if (destination.needsDirectory && !entry.IsDirectory()) {
        throw Failure{DisplayPath(newPath), "no such directory"};
    }
    if (IsWithin(spelledDirectory, spelled)) {
        throw Failure{DisplayPath(path), "cannot be moved into itself"};
    }
    const bool exists = FindEntry(image, newPath).has_value();
    const bool isSame = exists && SpelledPath(image, newPath) == spelled;
    if (exists && (!isSame || newName == entry.Name())) {
        throw Failure{DisplayPath(newPath), isSame ? "is where it was" : "exists"};
    }
    RequireReachableBelow(image, report, path, newPath);
    if (spelledDirectory == ParentPath(spelled)) {
        RenameEntry(image, path, newName);
    } else {
        MoveEntry(image, path, destination.directory, newName);
    }
    report.Done();
}

}  // namespace

int RunMv(const MvOptions& options) {
    return ChangeImage(options.image, DryRun::No, [&](MountedImage& image, Report& report) {
        const Destination destination =
            FindDestination(image, options.target, options.sources.size());
        ForEachPath(report, options.sources, [&](const std::u16string& path) {
            // The source as a new name for itself, where a directory would take it in.
            const bool isRenamed =
                options.sources.size() == 1 && !destination.directory.empty() &&
                destination.name.empty() &&
                SpelledPath(image, destination.directory) == SpelledPath(image, path);
            MoveOne(image, report,
                    isRenamed ? Destination{ParentPath(destination.directory),
                                            std::u16string(LastName(destination.directory)), false}
                              : destination,
                    path);
        });
    });
}

}  // namespace tool
