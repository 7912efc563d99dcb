// What put and cp have in common.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "commands.h"
#include "destination.h"
#include "mounted_image.h"
#include "report.h"
#include "source_tree.h"

namespace tool {

// The sources that the options name. What cannot be loaded is reported and left out.
std::vector<SourceNode> LoadSources(Report& report, const CopyOptions& options,
                                    const std::function<SourceNode(const std::string&)>& load);

// Checks everything and copies, or tells what would be done. Throws Failure when there is not room
// enough; what else fails is reported.
void CopyIn(MountedImage& image, Report& report, const CopyOptions& options,
            const Destination& destination, std::vector<SourceNode> sources);

}  // namespace tool
