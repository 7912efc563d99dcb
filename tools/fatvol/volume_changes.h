// The changes that commands are put together from. Each keeps the times of what it touches, and
// throws Failure, with everything as it was, when it cannot be done.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "entry.h"
#include "mounted_image.h"
#include "space_budget.h"

namespace tool {

// "too large: ..."
std::string TooLargeText(std::uint64_t maxBytes);

// Throws Failure when no entry of this path's last name should be made, or the path is too long.
void RequireUsableName(const std::u16string& path);

// Why an entry could not be made at `path`. `budget` holds what the entry itself would take.
std::string WhyNotCreated(MountedImage& image, const std::u16string& path, SpaceBudget& budget);

// Makes a directory in one that exists.
void CreateDirectory(MountedImage& image, const std::u16string& path, unsigned int attributes);

// Removes a file or an empty directory, which the listing of its directory told of.
void RemoveEntry(MountedImage& image, const std::u16string& path, const Entry& listed);

// Gives an entry another name in its directory, where no other entry may have it. A name that
// differs in letter case alone will do.
void RenameEntry(MountedImage& image, const std::u16string& path, std::u16string_view newName);

// Moves an entry to another directory under a name that is free there.
void MoveEntry(MountedImage& image, const std::u16string& path, const std::u16string& directory,
               std::u16string_view newName);

// A path in `directory` that nothing has, with a name of one slot.
std::u16string TemporaryPath(MountedImage& image, const std::u16string& directory);

}  // namespace tool
