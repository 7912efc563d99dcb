#include "commands.h"
#include "for_each_path.h"
#include "open_file.h"
#include "output.h"
#include "run_on_image.h"

namespace tool {

int RunAttr(const AttrOptions& options) {
    const bool changes = (options.set | options.clear) != 0;
    const auto work = [&](MountedImage& image, Report& report) {
        ForEachPath(report, options.paths, [&](const std::u16string& path) {
            OpenFile file(image, path);
            Entry entry = file.Info();
            if (changes) {
                entry.attributes = (entry.attributes & ~options.clear) | options.set;
                file.SetAttributes(entry);
            } else {
                PrintLine(AttributeLetters(entry.attributes) + "  " + ShownText(DisplayPath(path)));
            }
            report.Done();
        });
    };
    return ChangeImage(options.image, changes ? DryRun::No : DryRun::Yes, work);
}

}  // namespace tool
