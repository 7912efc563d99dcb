#include "copy_in.h"

#include <iterator>
#include <utility>

#include "insertion.h"
#include "insertion_plan.h"
#include "platform.h"
#include "progress_bar.h"
#include "volume_path.h"

namespace tool {

namespace {

// The nodes that go into the destination's directory under their names. A directory without a name
// gives those in it.
std::vector<SourceNode> NameSources(Report& report, const Destination& destination,
                                    std::vector<SourceNode> sources) {
    std::vector<SourceNode> nodes;
    for (SourceNode& source : sources) {
        if (!destination.name.empty()) {
            source.name = destination.name;
        }
        if (destination.needsDirectory && !source.isDirectory) {
            report.Fail({DisplayPath(JoinPath(destination.directory, destination.name)),
                         "no such directory"});
        } else if (!source.name.empty()) {
            nodes.push_back(std::move(source));
        } else if (source.isDirectory) {
            std::move(source.children.begin(), source.children.end(), std::back_inserter(nodes));
        } else {
            report.Fail({source.origin, "needs a path that names the file"});
        }
    }
    return nodes;
}

}  // namespace

std::vector<SourceNode> LoadSources(Report& report, const CopyOptions& options,
                                    const std::function<SourceNode(const std::string&)>& load) {
    std::vector<SourceNode> sources;
    for (const std::string& source : options.sources) {
        try {
            sources.push_back(load(source));
        } catch (const Failure& failure) {
            report.Fail(failure);
        }
    }
    return sources;
}

void CopyIn(MountedImage& image, Report& report, const CopyOptions& options,
            const Destination& destination, std::vector<SourceNode> sources) {
    const std::vector<SourceNode> nodes = NameSources(report, destination, std::move(sources));
    const InsertionPlan plan =
        PlanInsertion(image, report, options.onExisting, nodes, destination.directory);
    if (platform::Interrupted()) {
        return;
    }
    if (options.dryRun == DryRun::Yes) {
        PrintPlan(plan.placements);
        return;
    }
    ProgressBar progress(plan.totalBytes, report);
    Insertion(image, report, progress).Copy(plan.placements);
}

}  // namespace tool
