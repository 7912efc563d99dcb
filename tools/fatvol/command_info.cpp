#include <fmt/format.h>

#include <cstdint>

#include "commands.h"
#include "entry.h"
#include "output.h"
#include "run_on_image.h"

namespace tool {

namespace {

std::string SizeText(std::uint64_t byteCount) {
    return fmt::format("{} bytes ({})", byteCount, HumanBytes(byteCount));
}

void PrintInfo(const FatVolumeInfo& info) {
    const auto print = [](std::string_view title, const auto& value) {
        PrintLine(fmt::format("{:<18} {}", title, value));
    };
    const std::u16string label = NameInField(info.volumeLabel);
    print("FAT type", fmt::format("FAT{}", info.fatType));
    print("Label", label.empty() ? "(none)" : ShownName(label));
    print("Bytes per sector", info.bytesPerSector);
    print("Bytes per cluster", info.bytesPerCluster);
    print("Clusters", info.clusterCount);
    print("Free clusters", info.freeClusters);
    print("Total", SizeText(std::uint64_t{info.clusterCount} * info.bytesPerCluster));
    print("Free", SizeText(std::uint64_t{info.freeClusters} * info.bytesPerCluster));
}

}  // namespace

int RunInfo(const ImageOptions& options) {
    return RunOnImage(options.image, platform::ImageAccess::ReadOnly,
                      [](MountedImage& image, Report& report) {
                          PrintInfo(image.Info());
                          report.Done();
                      });
}

}  // namespace tool
