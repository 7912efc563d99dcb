// Reading a directory's entries into its listing.
#pragma once

#include "storage/fat_status.h"

namespace fatvol {

class CFatFile;
struct DirListing;

// Gives an initialised directory its listing. A directory that ends without an end mark is
// complete; slots beyond MaxDirSlots are not looked at. On failure the listing holds what was read
// so far.
FatStatus LoadDirListing(CFatFile& directory);

// Fills a new listing. 0 at an end mark, STATUS_END_OF_FILE at the end of the data,
// STATUS_NO_MEMORY, or the failure of a read.
FatStatus ParseDirectory(DirListing& listing, CFatFile& directory);

}  // namespace fatvol
