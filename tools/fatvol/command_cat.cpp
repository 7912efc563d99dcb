#include "commands.h"
#include "open_file.h"
#include "output.h"
#include "run_on_image.h"
#include "volume_path.h"

namespace tool {

int RunCat(const PathOptions& options) {
    return RunOnImage(options.image, platform::ImageAccess::ReadOnly,
                      [&](MountedImage& image, Report& report) {
                          const std::u16string path = VolumePathFromArgument(options.path);
                          OpenFile file(image, path);
                          if (file.IsDirectory()) {
                              throw Failure{DisplayPath(path), "is a directory"};
                          }
                          file.ReadToEnd(WriteOutput);
                          report.Done();
                      });
}

}  // namespace tool
