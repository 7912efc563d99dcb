#include "insertion.h"

#include "new_file.h"
#include "open_file.h"
#include "output.h"
#include "platform.h"
#include "volume_changes.h"
#include "volume_path.h"

namespace tool {

namespace {

using Action = Placement::Action;

// Thrown to leave a file that is half copied. Not reported: the whole command is interrupted.
struct Interruption {};

}  // namespace

void Insertion::Copy(const std::vector<Placement>& placements) {
    for (const Placement& placement : placements) {
        if (platform::Interrupted()) {
            return;
        }
        try {
            CopyOne(placement);
        } catch (const Failure& failure) {
            report_.Fail(failure);
        } catch (const Interruption&) {
            return;
        }
    }
}

void Insertion::CopyOne(const Placement& placement) {
    switch (placement.action) {
        case Action::CreateDirectory:
            return CopyDirectory(placement);
        case Action::EnterDirectory:
            return Copy(placement.children);
        case Action::WriteNew:
        case Action::Replace:
            return CopyFile(placement);
        case Action::LeaveExisting:
            return report_.Done();
    }
}

void Insertion::CopyDirectory(const Placement& placement) {
    CreateDirectory(image_, placement.path, placement.node->attributes);
    Copy(placement.children);
    if (placement.node->modified == kNoTime) {
        return;
    }
    OpenFile directory(image_, placement.path);
    Entry entry = directory.Info();
    entry.modified = placement.node->modified;
    directory.SetAttributes(entry);
}

void Insertion::CopyFile(const Placement& placement) {
    const SourceNode& node = *placement.node;
    const bool replaces = placement.action == Action::Replace;
    constexpr unsigned int kKept = kReadOnly | kHidden | kSystem;
    const unsigned int attributes =
        replaces ? kArchive | (placement.existing.attributes & kKept) : node.attributes;
    NewFile file(image_,
                 replaces ? TemporaryPath(image_, ParentPath(placement.path)) : placement.path,
                 static_cast<std::uint32_t>(node.sizeBytes), attributes);
    node.read([&](const unsigned char* bytes, std::size_t count) {
        if (platform::Interrupted()) {
            throw Interruption{};
        }
        if (node.isSizeKnown) {
            file.Write(bytes, count);
        } else {
            file.Append(bytes, count);
        }
        progress_.Advance(count);
    });
    file.Close(node.modified);
    if (replaces) {
        file.Replace(JoinPath(ParentPath(placement.path), placement.existing.Name()));
    }
    file.Keep();
    report_.Done();
}

void PrintPlan(const std::vector<Placement>& placements) {
    for (const Placement& placement : placements) {
        const std::string path = ShownText(DisplayPath(placement.path));
        switch (placement.action) {
            case Action::CreateDirectory:
                PrintLine("would make the directory " + path);
                break;
            case Action::WriteNew:
                PrintLine("would write " + path);
                break;
            case Action::Replace:
                PrintLine("would replace " + path);
                break;
            case Action::EnterDirectory:
            case Action::LeaveExisting:
                break;
        }
        PrintPlan(placement.children);
    }
}

}  // namespace tool
