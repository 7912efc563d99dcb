#include <fmt/format.h>

#include <algorithm>

#include "commands.h"
#include "entry.h"
#include "listing.h"
#include "open_file.h"
#include "output.h"
#include "run_on_image.h"
#include "volume_path.h"

namespace tool {

namespace {

// A directory gives its entries, a file itself.
std::vector<Entry> EntriesAt(MountedImage& image, const std::u16string& path) {
    if (!path.empty()) {
        const OpenFile file(image, path);
        if (!file.IsDirectory()) {
            return {file.Info()};
        }
    }
    std::vector<Entry> entries = CollectEntries(path);
    std::sort(entries.begin(), entries.end(), NameComesBefore);
    return entries;
}

std::string LongLine(const Entry& entry) {
    const std::string size = entry.IsDirectory() ? "-" : std::to_string(entry.sizeBytes);
    return fmt::format("{}  {:>10}  {:<19}  {:<12}  {}", AttributeLetters(entry.attributes), size,
                       FormatTime(entry.modified), ShownName(entry.shortName),
                       ShownEntryName(entry));
}

}  // namespace

int RunLs(const LsOptions& options) {
    return RunOnImage(
        options.image, platform::ImageAccess::ReadOnly, [&](MountedImage& image, Report& report) {
            for (const Entry& entry : EntriesAt(image, VolumePathFromArgument(options.path))) {
                PrintLine(options.namesOnly ? ShownEntryName(entry) : LongLine(entry));
            }
            report.Done();
        });
}

}  // namespace tool
