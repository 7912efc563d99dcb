#include "volume_changes.h"

#include <fmt/format.h>

#include <algorithm>

#include "listing.h"
#include "open_file.h"
#include "report.h"
#include "volume_path.h"

namespace tool {

std::string TooLargeText(std::uint64_t maxBytes) {
    return fmt::format("too large: files of this volume end at {} bytes", maxBytes);
}

void RequireUsableName(const std::u16string& path) {
    if (const std::string why = WhyNameRefused(LastName(path)); !why.empty()) {
        throw Failure{DisplayPath(path), why};
    }
    RequirePathLength(path);
}

std::string WhyNotCreated(MountedImage& image, const std::u16string& path, SpaceBudget& budget) {
    if (const std::string trouble = image.CauseOr(""); !trouble.empty()) {
        return trouble;
    }
    if (FindEntry(image, path)) {
        return "exists, perhaps in other letter case";
    }
    const std::u16string directory = ParentPath(path);
    const auto parent = FindEntry(image, directory);
    if (!parent) {
        return "no such directory: " + DisplayPath(directory);
    }
    if (!parent->IsDirectory()) {
        return "a file is in the way: " + DisplayPath(directory);
    }
    budget.AddEntries(directory, SlotsOfName(LastName(path)));
    return budget.ShortageOr("cannot be made: the directory is damaged, or memory is short");
}

void CreateDirectory(MountedImage& image, const std::u16string& path, unsigned int attributes) {
    RequireUsableName(path);
    image.ForgetTrouble();
    if (!Fat_CreateDir(path.c_str(), static_cast<unsigned char>(attributes))) {
        SpaceBudget budget(image);
        budget.AddDirectory(0);
        throw Failure{DisplayPath(path), WhyNotCreated(image, path, budget)};
    }
}

void RemoveEntry(MountedImage& image, const std::u16string& path, const Entry& listed) {
    {
        const OpenFile ledThere(image, path, listed);  // the path may mean another entry
    }
    image.ForgetTrouble();
    if (!Fat_DeleteFile(path.c_str())) {
        throw Failure{DisplayPath(path),
                      image.CauseOr(listed.IsDirectory() ? "cannot be removed: not empty"
                                                         : "cannot be removed: damaged")};
    }
}

namespace {

// One renaming, without a change of times.
void Rename(MountedImage& image, const std::u16string& path, std::u16string_view newName) {
    const std::u16string newPath = JoinPath(ParentPath(path), newName);
    image.ForgetTrouble();
    if (!Fat_RenameFile(path.c_str(), newPath.c_str())) {
        SpaceBudget budget(image);
        throw Failure{DisplayPath(newPath), WhyNotCreated(image, newPath, budget)};
    }
}

void Move(MountedImage& image, const std::u16string& path, const std::u16string& directory) {
    image.ForgetTrouble();
    if (!Fat_MoveFile(path.c_str(), directory.empty() ? nullptr : directory.c_str())) {
        const std::u16string newPath = JoinPath(directory, LastName(path));
        SpaceBudget budget(image);
        throw Failure{DisplayPath(newPath), WhyNotCreated(image, newPath, budget)};
    }
}

// Does `step`, and `undo` when it fails.
template <typename Step, typename Undo>
void OrUndo(Step step, Undo undo) {
    try {
        step();
    } catch (const Failure& failure) {
        try {
            undo();
        } catch (const Failure& second) {
            throw Failure{failure.path, fmt::format("{}; and {} could not be undone: {}",
                                                    failure.cause, second.path, second.cause)};
        }
        throw;
    }
}

void RenameTwice(MountedImage& image, const std::u16string& path, std::u16string_view newName) {
    const std::u16string between = TemporaryPath(image, ParentPath(path));
    Rename(image, path, LastName(between));
    OrUndo([&] { Rename(image, between, newName); },
           [&] { Rename(image, between, LastName(path)); });
}

// Whether the directory has an entry that the name, or the short name, of `entry` would meet.
bool MeetsAny(MountedImage& image, const std::u16string& directory, std::u16string_view name,
              const Entry& entry) {
    const std::vector<Entry> others = CollectEntries(directory);
    return FindEntry(image, JoinPath(directory, name)) ||
           std::any_of(others.begin(), others.end(), [&](const Entry& other) {
               return IsSameName(other.shortName, entry.shortName);
           });
}

}  // namespace

void RenameEntry(MountedImage& image, const std::u16string& path, std::u16string_view newName) {
    const Entry entry = OpenFile(image, path).Info();
    const std::u16string newPath = JoinPath(ParentPath(path), newName);
    RequireUsableName(newPath);
    if (FindEntry(image, newPath) == entry) {
        RenameTwice(image, path, newName);
    } else {
        Rename(image, path, newName);
    }
    // Renaming stamps an entry with the time of day.
    OpenFile(image, newPath).SetAttributes(entry);
}

// A move carries an entry's short name along, which may be taken where it goes; a renaming chooses
// a free one. So the entry goes by a name between, where its own could meet another.
void MoveEntry(MountedImage& image, const std::u16string& path, const std::u16string& directory,
               std::u16string_view newName) {
    const Entry entry = OpenFile(image, path).Info();
    const std::u16string newPath = JoinPath(directory, newName);
    const std::u16string oldDirectory = ParentPath(path);
    const std::u16string oldName(LastName(path));
    RequireUsableName(newPath);
    const bool meets = MeetsAny(image, directory, oldName, entry);
    const std::u16string between =
        meets ? std::u16string(LastName(TemporaryPath(image, directory))) : oldName;
    const std::u16string there = JoinPath(directory, between);
    if (meets) {
        RenameEntry(image, path, between);
    }
    const auto nameBack = [&] {
        if (meets) {
            RenameEntry(image, JoinPath(oldDirectory, between), oldName);
        }
    };
    OrUndo([&] { Move(image, JoinPath(oldDirectory, between), directory); }, nameBack);
    OrUndo(
        [&] {
            if (between != newName) {
                RenameEntry(image, there, newName);
            }
        },
        [&] {
            Move(image, there, oldDirectory);
            nameBack();
        });
}

std::u16string TemporaryPath(MountedImage& image, const std::u16string& directory) {
    constexpr int kAttempts = 1000;
    for (int number = 0; number < kAttempts; ++number) {
        std::u16string name = u"~FV";
        for (const char digit : std::to_string(number)) {
            name.push_back(static_cast<char16_t>(digit));
        }
        const std::u16string path = JoinPath(directory, name);
        RequirePathLength(path);
        if (!FindEntry(image, path)) {
            return path;
        }
    }
    throw Failure{DisplayPath(directory), "no free name for a temporary file"};
}

}  // namespace tool
