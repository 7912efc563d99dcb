// Making a directory with its "." and ".." entries.
#pragma once

#include <cstdint>

#include "data/fat_file.h"
#include "dir/dir_entry.h"
#include "storage/fat_status.h"

namespace fatvol {

// Creates a directory of one cluster in a loaded directory and gives its object, with its listing
// and one reference. Its content stands in the block cache until it is written back.
// STATUS_DISK_FULL without a free cluster or slot, STATUS_FILE_CORRUPT_ERROR when the new object
// cannot be initialised, STATUS_NO_MEMORY, or the failure of a transfer. After a failure neither
// entry nor cluster is left.
FatStatus CreateSubdirectory(CFatFile& parent, const char16_t* name, std::uint8_t attributes,
                             FileReference* created);

}  // namespace fatvol
