#include "commands.h"
#include "directory_tree.h"
#include "for_each_path.h"
#include "open_file.h"
#include "output.h"
#include "run_on_image.h"
#include "volume_changes.h"

namespace tool {

namespace {

class Removal {
public:
    Removal(MountedImage& image, Report& report, DryRun dryRun)
        : image_(image), report_(report), dryRun_(dryRun) {}

    // What is below first. Whether all of it is gone; what could not be removed is reported.
    bool Remove(const TreeNode& node, const std::u16string& path) {
        bool isEmpty = !node.isUnreadable;
        for (const TreeNode& child : node.children) {
            isEmpty = Remove(child, JoinPath(path, child.entry.Name())) && isEmpty;
        }
        if (!isEmpty || platform::Interrupted()) {
            return false;
        }
        try {
            RemoveOne(node.entry, path);
        } catch (const Failure& failure) {
            report_.Fail(failure);
            return false;
        }
        report_.Done();
        return true;
    }

private:
    void RemoveOne(const Entry& entry, const std::u16string& path) {
        if (dryRun_ == DryRun::Yes) {
            PrintLine("would remove " + ShownText(DisplayPath(path)));
        } else {
            RemoveEntry(image_, path, entry);
        }
    }

    MountedImage& image_;
    Report& report_;
    const DryRun dryRun_;
};

}  // namespace

int RunRm(const RmOptions& options) {
    return ChangeImage(options.image, options.dryRun, [&](MountedImage& image, Report& report) {
        Removal removal(image, report, options.dryRun);
        ForEachPath(report, options.paths, [&](const std::u16string& path) {
            if (OpenFile(image, path).IsDirectory() && !options.recursive) {
                throw Failure{DisplayPath(path),
                              "is a directory (-r removes it with everything in it)"};
            }
            removal.Remove(LoadTree(image, report, path), path);
        });
    });
}

}  // namespace tool
