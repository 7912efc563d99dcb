#include <fmt/format.h>

#include <algorithm>

#include "commands.h"
#include "directory_tree.h"
#include "output.h"
#include "run_on_image.h"
#include "volume_path.h"

namespace tool {

namespace {

struct TreeCounts {
    unsigned long long directories = 0;
    unsigned long long files = 0;
};

// `indent` is what stands before the branch of each child.
void PrintChildren(TreeNode& node, const std::string& indent, TreeCounts& counts) {
    std::sort(node.children.begin(), node.children.end(),
              [](const TreeNode& left, const TreeNode& right) {
                  return NameComesBefore(left.entry, right.entry);
              });
    for (TreeNode& child : node.children) {
        const bool isLast = &child == &node.children.back();
        const bool isDirectory = child.entry.IsDirectory();
        ++(isDirectory ? counts.directories : counts.files);
        PrintLine(indent + (isLast ? "└── " : "├── ") + ShownEntryName(child.entry) +
                  (isDirectory ? "/" : ""));
        PrintChildren(child, indent + (isLast ? "    " : "│   "), counts);
    }
}

}  // namespace

int RunTree(const PathOptions& options) {
    return RunOnImage(options.image, platform::ImageAccess::ReadOnly,
                      [&](MountedImage& image, Report& report) {
                          const std::u16string path = VolumePathFromArgument(options.path);
                          TreeNode root = LoadTree(image, report, path);
                          if (!root.entry.IsDirectory()) {
                              throw Failure{DisplayPath(path), "not a directory"};
                          }
                          TreeCounts counts;
                          PrintLine(ShownText(DisplayPath(path)));
                          PrintChildren(root, "", counts);
                          PrintLine(fmt::format("{} director{}, {} file{}", counts.directories,
                                                counts.directories == 1 ? "y" : "ies", counts.files,
                                                counts.files == 1 ? "" : "s"));
                          if (!root.isUnreadable) {
                              report.Done();
                          }
                      });
}

}  // namespace tool
