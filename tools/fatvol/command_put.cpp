#include "commands.h"
#include "copy_in.h"
#include "run_on_image.h"
#include "source_tree.h"

namespace tool {

int RunPut(const CopyOptions& options) {
    return ChangeImage(options.image, options.dryRun, [&](MountedImage& image, Report& report) {
        const Destination destination =
            FindDestination(image, options.target, options.sources.size());
        const auto load = [&](const std::string& source) {
            return LoadLocalSource(report, source);
        };
        CopyIn(image, report, options, destination, LoadSources(report, options, load));
    });
}

}  // namespace tool
