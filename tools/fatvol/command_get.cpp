#include <cstdint>

#include "commands.h"
#include "directory_tree.h"
#include "extraction.h"
#include "output.h"
#include "progress_bar.h"
#include "run_on_image.h"
#include "utf.h"
#include "volume_path.h"

namespace tool {

namespace {

struct Source {
    std::u16string path;  // empty: the root
    TreeNode tree;
};

std::uint64_t SumBytes(const TreeNode& node) {
    std::uint64_t sum = node.entry.IsDirectory() ? 0 : node.entry.sizeBytes;
    for (const TreeNode& child : node.children) {
        sum += SumBytes(child);
    }
    return sum;
}

std::vector<Source> LoadSources(MountedImage& image, Report& report,
                                const std::vector<std::string>& arguments) {
    std::vector<Source> sources;
    for (const std::string& argument : arguments) {
        try {
            const std::u16string path = VolumePathFromArgument(argument);
            sources.push_back({path, LoadTree(image, report, path)});
        } catch (const Failure& failure) {
            report.Fail(failure);
        }
    }
    return sources;
}

void OpenLocal(platform::LocalDirectory& directory, const std::string& path) {
    if (const int error = directory.Open(path); error != 0) {
        throw Failure{path, platform::ErrorText(error)};
    }
}

// As cp -r does it: into LOCAL when it is a directory, otherwise the one source becomes LOCAL. The
// root has no name to go by, so its content goes straight into the directory LOCAL in either case.
void CopySource(Extraction& extraction, const Source& source, const std::string& local) {
    const bool isRoot = source.path.empty();
    const bool intoLocal = platform::IsDirectory(local);
    const platform::LocalPlace place = platform::SplitLocalPath(local);
    if (!intoLocal && place.endsInSeparator && !source.tree.entry.IsDirectory()) {
        throw Failure{local, "no such directory"};
    }
    platform::LocalDirectory directory;
    OpenLocal(directory, intoLocal ? local : place.parent);
    if (!intoLocal) {
        extraction.Copy(source.tree, source.path, directory, place.name);
    } else if (isRoot) {
        extraction.CopyChildren(source.tree, source.path, directory);
    } else {
        // The name as the volume writes it, whatever case the user has typed.
        extraction.Copy(source.tree, source.path, directory,
                        Utf8FromUtf16(source.tree.entry.Name()));
    }
}

void CopySources(MountedImage& image, Report& report, const GetOptions& options) {
    if (options.paths.size() > 1 && !platform::IsDirectory(options.local)) {
        throw Failure{options.local, "not a directory, which several files need"};
    }
    const std::vector<Source> sources = LoadSources(image, report, options.paths);
    std::uint64_t totalBytes = 0;
    for (const Source& source : sources) {
        totalBytes += SumBytes(source.tree);
    }
    ProgressBar progress(totalBytes, report);
    Extraction extraction(image, report, progress, options.onExisting);
    for (const Source& source : sources) {
        try {
            CopySource(extraction, source, options.local);
        } catch (const Failure& failure) {
            report.Fail(failure);
        }
    }
}

}  // namespace

int RunGet(const GetOptions& options) {
    platform::CatchInterrupts();
    return RunOnImage(options.image, platform::ImageAccess::ReadOnly,
                      [&](MountedImage& image, Report& report) {
                          CopySources(image, report, options);
                          if (platform::Interrupted()) {
                              throw Failure{"", "interrupted"};
                          }
                      });
}

}  // namespace tool
