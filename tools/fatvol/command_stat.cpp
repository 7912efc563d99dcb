#include <fmt/format.h>

#include "commands.h"
#include "open_file.h"
#include "output.h"
#include "run_on_image.h"
#include "volume_path.h"

namespace tool {

namespace {

void PrintField(std::string_view title, std::string_view value) {
    PrintLine(fmt::format("{:<11} {}", title, value));
}

std::string AttributeWords(unsigned int attributes) {
    constexpr struct {
        unsigned int bit;
        const char* word;
    } kWords[] = {{kReadOnly, " read-only"}, {kHidden, " hidden"},       {kSystem, " system"},
                  {0x08, " volume-label"},   {kDirectory, " directory"}, {kArchive, " archive"}};
    std::string words;
    for (const auto& [bit, word] : kWords) {
        words += (attributes & bit) != 0 ? word : "";
    }
    return words;
}

void PrintEntry(const std::u16string& path, const Entry& entry) {
    const auto orNone = [](const std::u16string& name) {
        return name.empty() ? "-" : ShownName(name);
    };
    PrintField("Path", ShownText(DisplayPath(path)));
    PrintField("Type", entry.IsDirectory() ? "directory" : "file");
    PrintField("Size", fmt::format("{} bytes", entry.sizeBytes));
    PrintField("Long name", orNone(entry.longName));
    PrintField("Short name", orNone(entry.shortName));
    PrintField("Attributes",
               fmt::format("0x{:02X}{}", entry.attributes, AttributeWords(entry.attributes)));
    PrintField("Created", FormatTime(entry.created));
    PrintField("Modified", FormatTime(entry.modified));
    PrintField("Accessed", FormatDate(entry.accessed));
}

}  // namespace

int RunStat(const PathOptions& options) {
    return RunOnImage(options.image, platform::ImageAccess::ReadOnly,
                      [&](MountedImage& image, Report& report) {
                          const std::u16string path = VolumePathFromArgument(options.path);
                          if (path.empty()) {
                              PrintField("Path", DisplayPath(path));
                              PrintField("Type", "root directory (without an entry of its own)");
                          } else {
                              PrintEntry(path, OpenFile(image, path).Info());
                          }
                          report.Done();
                      });
}

}  // namespace tool
