// Copies files and directories onto a volume as a plan says.
#pragma once

#include <vector>

#include "insertion_plan.h"
#include "mounted_image.h"
#include "progress_bar.h"
#include "report.h"

namespace tool {

class Insertion {
public:
    Insertion(MountedImage& image, Report& report, ProgressBar& progress)
        : image_(image), report_(report), progress_(progress) {}

    // What fails is reported and leaves no partial file; a file that was to be replaced is then
    // still there. The rest is done all the same. An interrupt ends it early.
    void Copy(const std::vector<Placement>& placements);

private:
    void CopyOne(const Placement& placement);
    void CopyDirectory(const Placement& placement);
    void CopyFile(const Placement& placement);

    MountedImage& image_;
    Report& report_;
    ProgressBar& progress_;
};

// Prints what Copy would do.
void PrintPlan(const std::vector<Placement>& placements);

}  // namespace tool
