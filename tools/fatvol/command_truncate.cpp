#include <fmt/format.h>

#include "commands.h"
#include "for_each_path.h"
#include "open_file.h"
#include "output.h"
#include "run_on_image.h"
#include "space_budget.h"
#include "volume_changes.h"

namespace tool {

namespace {

void Truncate(MountedImage& image, const TruncateOptions& options, const std::u16string& path) {
    OpenFile file(image, path);
    Entry entry = file.Info();
    if (entry.IsDirectory()) {
        throw Failure{DisplayPath(path), "is a directory"};
    }
    if (const std::uint64_t maxBytes = MaxFileBytes(image.Info()); options.sizeBytes > maxBytes) {
        throw Failure{DisplayPath(path), TooLargeText(maxBytes)};
    }
    if (options.dryRun == DryRun::Yes) {
        PrintLine(fmt::format("would change {} from {} to {} bytes", ShownText(DisplayPath(path)),
                              entry.sizeBytes, options.sizeBytes));
        return;
    }
    file.Resize(static_cast<std::uint32_t>(options.sizeBytes));
    entry.modified = CurrentVolumeTime();
    entry.attributes |= kArchive;
    file.SetAttributes(entry);
}

}  // namespace

int RunTruncate(const TruncateOptions& options) {
    return ChangeImage(options.image, options.dryRun, [&](MountedImage& image, Report& report) {
        ForEachPath(report, options.paths, [&](const std::u16string& path) {
            Truncate(image, options, path);
            report.Done();
        });
    });
}

}  // namespace tool
