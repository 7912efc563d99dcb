// Copies files and directories out of a volume.
#pragma once

#include <string>

#include "commands.h"
#include "directory_tree.h"
#include "mounted_image.h"
#include "platform.h"
#include "progress_bar.h"
#include "report.h"

namespace tool {

class Extraction {
public:
    Extraction(MountedImage& image, Report& report, ProgressBar& progress, OnExisting onExisting)
        : image_(image), report_(report), progress_(progress), onExisting_(onExisting) {}

    // Copies the file or directory `node`, whose path on the volume is `path`, as `localName` into
    // a local directory; an existing subdirectory is added to. What fails is reported and leaves
    // no partial file; the rest is done all the same. An interrupt ends it early.
    void Copy(const TreeNode& node, const std::u16string& path,
              const platform::LocalDirectory& into, const std::string& localName);

    // Copies what is below the directory `node` straight into a local directory.
    void CopyChildren(const TreeNode& node, const std::u16string& path,
                      const platform::LocalDirectory& into);

private:
    void CopyFile(const TreeNode& node, const std::u16string& path,
                  const platform::LocalDirectory& into, const std::string& localName);
    void CopyDirectory(const TreeNode& node, const std::u16string& path,
                       const platform::LocalDirectory& into, const std::string& localName);

    MountedImage& image_;
    Report& report_;
    ProgressBar& progress_;
    const OnExisting onExisting_;
};

}  // namespace tool
