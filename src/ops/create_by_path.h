// Creating files and directories by path, with the directories that are missing on the way.
#pragma once

#include <cstdint>

#include "data/fat_file.h"
#include "storage/fat_status.h"

struct FatVolume;

namespace fatvol {

enum class NewObject { File, Directory };

// Creates the last component of a normalised path and gives its object, which is cached.
// STATUS_DRIVER_INTERNAL_ERROR when the name exists, STATUS_NOT_FOUND when a component on the way
// is a file, STATUS_INVALID_PARAMETER for the volume-label attribute, or the failure of a step.
// After a failure neither entry nor clusters of the new object are left; directories made on the
// way stay.
FatStatus CreateByPath(FatVolume& volume, const char16_t* path, NewObject kind,
                       std::uint32_t sizeBytes, std::uint8_t attributes, FileReference* created);

}  // namespace fatvol
