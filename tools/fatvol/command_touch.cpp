#include "commands.h"
#include "for_each_path.h"
#include "new_file.h"
#include "open_file.h"
#include "run_on_image.h"

namespace tool {

namespace {

VolumeTime TimeFromOptions(const TouchOptions& options) {
    if (options.time.empty()) {
        return CurrentVolumeTime();
    }
    const auto time = ParseTime(options.time);
    if (!time) {
        throw Failure{options.time, "no time from 1980 to 2107 such as \"2024-05-31 14:30:00\""};
    }
    return *time;
}

void Touch(MountedImage& image, const std::u16string& path, VolumeTime time) {
    if (!FindEntry(image, path)) {
        const std::u16string directory = ParentPath(path);
        if (!FindEntry(image, directory)) {
            throw Failure{DisplayPath(directory), "no such directory"};
        }
        NewFile file(image, path, 0, kArchive);
        file.Close(time);
        file.Keep();
    }
    OpenFile file(image, path);
    Entry entry = file.Info();
    entry.modified = time;
    entry.accessed = time;
    file.SetAttributes(entry);
}

}  // namespace

int RunTouch(const TouchOptions& options) {
    return ChangeImage(options.image, DryRun::No, [&](MountedImage& image, Report& report) {
        const VolumeTime time = TimeFromOptions(options);
        ForEachPath(report, options.paths, [&](const std::u16string& path) {
            Touch(image, path, time);
            report.Done();
        });
    });
}

}  // namespace tool
