#include "insertion_plan.h"

#include <optional>
#include <unordered_map>

#include "open_file.h"
#include "platform.h"
#include "space_budget.h"
#include "volume_changes.h"
#include "volume_path.h"

namespace tool {

namespace {

using Action = Placement::Action;

enum class Target { Existing, New };

class Planner {
public:
    Planner(MountedImage& image, Report& report, OnExisting onExisting)
        : image_(image),
          report_(report),
          onExisting_(onExisting),
          maxFileBytes_(MaxFileBytes(image.Info())),
          budget_(image) {}

    std::vector<Placement> Place(const std::vector<SourceNode>& nodes,
                                 const std::u16string& directory, Target target) {
        std::vector<Placement> placements;
        Taken taken;
        for (const SourceNode& node : nodes) {
            if (platform::Interrupted()) {
                break;
            }
            try {
                placements.push_back(PlaceOne(node, directory, target, taken));
            } catch (const Failure& failure) {
                report_.Fail(failure);
            }
        }
        const std::uint64_t slots = SlotsOf(placements);
        if (target == Target::New) {
            budget_.AddDirectory(slots);
        } else {
            budget_.AddEntries(directory, slots);
        }
        return placements;
    }

    std::uint64_t TotalBytes() const { return totalBytes_; }
    void RequireRoom() const { budget_.RequireEnough(); }

private:
    // Who has which name, in one letter case.
    using Taken = std::unordered_map<std::u16string, const SourceNode*>;

    static std::uint64_t SlotsOf(const std::vector<Placement>& placements) {
        std::uint64_t slots = 0;
        std::uint64_t forTemporary = 0;
        for (const Placement& placement : placements) {
            if (placement.action == Action::CreateDirectory ||
                placement.action == Action::WriteNew) {
                slots += SlotsOfName(LastName(placement.path));
            }
            forTemporary = placement.action == Action::Replace ? 1 : forTemporary;
        }
        return slots + forTemporary;
    }

    // The letter case of more than ASCII is the library's knowledge: what gets by here is refused
    // when it is to be made, since it then exists.
    static void RequireUnlikeSiblings(const SourceNode& node, const std::u16string& path,
                                      const std::optional<Entry>& existing, Taken& taken) {
        const auto take = [&](const std::u16string& name) {
            const auto [place, isFree] = taken.emplace(FoldAscii(name), &node);
            if (!isFree && place->second != &node) {
                throw Failure{DisplayPath(path), "also the place of " + place->second->origin +
                                                     ": the names differ in letter case at most"};
            }
        };
        take(node.name);
        if (existing) {
            take(existing->Name());
        }
    }

    Placement PlaceOne(const SourceNode& node, const std::u16string& directory, Target target,
                       Taken& taken) {
        if (const std::string why = WhyNameRefused(node.name); !why.empty()) {
            throw Failure{node.origin, why};
        }
        std::u16string path = JoinPath(directory, node.name);
        RequirePathLength(path);
        const auto existing =
            target == Target::Existing ? FindEntry(image_, path) : std::optional<Entry>();
        RequireUnlikeSiblings(node, path, existing, taken);
        if (existing && existing->IsDirectory() != node.isDirectory) {
            throw Failure{DisplayPath(path), existing->IsDirectory()
                                                 ? "a directory of this name is in the way"
                                                 : "a file of this name is in the way"};
        }
        Placement placement{
            &node, std::move(path), Action::WriteNew, existing.value_or(Entry()), {}};
        placement.action = node.isDirectory ? PlaceDirectory(placement, existing.has_value())
                                            : PlaceFile(placement, existing.has_value());
        return placement;
    }

    Action PlaceDirectory(Placement& placement, bool exists) {
        placement.children = Place(placement.node->children, placement.path,
                                   exists ? Target::Existing : Target::New);
        return exists ? Action::EnterDirectory : Action::CreateDirectory;
    }

    Action PlaceFile(const Placement& placement, bool exists) {
        const SourceNode& node = *placement.node;
        if (node.sizeBytes > maxFileBytes_) {
            throw Failure{node.origin, TooLargeText(maxFileBytes_)};
        }
        if (exists && onExisting_ == OnExisting::Fail) {
            throw Failure{DisplayPath(placement.path), "exists (--force replaces, --skip keeps)"};
        }
        if (exists && onExisting_ == OnExisting::Skip) {
            return Action::LeaveExisting;
        }
        // A replaced file makes room only when the new one is there.
        budget_.AddFile(node.sizeBytes);
        totalBytes_ += node.sizeBytes;
        if (exists) {
            budget_.RemoveFile(placement.existing.sizeBytes);
        }
        return exists ? Action::Replace : Action::WriteNew;
    }

    MountedImage& image_;
    Report& report_;
    const OnExisting onExisting_;
    const std::uint64_t maxFileBytes_;
    SpaceBudget budget_;
    std::uint64_t totalBytes_ = 0;
};

}  // namespace

InsertionPlan PlanInsertion(MountedImage& image, Report& report, OnExisting onExisting,
                            const std::vector<SourceNode>& nodes, const std::u16string& directory) {
    Planner planner(image, report, onExisting);
    InsertionPlan plan;
    plan.placements = planner.Place(nodes, directory, Target::Existing);
    plan.totalBytes = planner.TotalBytes();
    planner.RequireRoom();
    return plan;
}

}  // namespace tool
