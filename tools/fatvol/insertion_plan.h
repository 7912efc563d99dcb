// What copying onto a volume will do, worked out and checked before anything is written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "commands.h"
#include "entry.h"
#include "mounted_image.h"
#include "report.h"
#include "source_tree.h"

namespace tool {

// A source and its place on the volume.
struct Placement {
    enum class Action { CreateDirectory, EnterDirectory, WriteNew, Replace, LeaveExisting };

    const SourceNode* node;
    std::u16string path;
    Action action;
    Entry existing;  // what stands there; meaningful but for CreateDirectory and WriteNew
    std::vector<Placement> children;
};

struct InsertionPlan {
    std::vector<Placement> placements;
    std::uint64_t totalBytes = 0;  // to be written
};

// Plans the copying of `nodes`, which must outlive the plan, into an existing directory. What
// cannot be placed (a name that is refused or taken, a file that is too large) is reported and
// left out. Throws Failure when the volume has not room enough for the rest.
InsertionPlan PlanInsertion(MountedImage& image, Report& report, OnExisting onExisting,
                            const std::vector<SourceNode>& nodes, const std::u16string& directory);

}  // namespace tool
