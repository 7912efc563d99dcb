// A directory with everything below it. A volume whose directories contain each other is read to
// an end all the same.
#pragma once

#include <string>
#include <vector>

#include "entry.h"
#include "mounted_image.h"
#include "report.h"

namespace tool {

struct TreeNode {
    Entry entry;
    std::vector<TreeNode> children;
    bool isUnreadable = false;  // a directory that could not be listed
};

// What a user named, with everything below it; the root, which has no entry, as a directory
// without a name. Throws Failure when there is no such file. What fails further down is reported
// and marked. An interrupt ends the reading early.
TreeNode LoadTree(MountedImage& image, Report& report, const std::u16string& path);

}  // namespace tool
