// The entries of one directory, straight from the library.
#pragma once

#include <string>
#include <vector>

#include "entry.h"

namespace tool {

// All entries but "." and "..", in the order of the directory; `directory` is empty for the root.
// Empty when the directory is, but also when it is missing or damaged: OpenFile tells these apart.
// Holds a find handle no longer than the call, since there are few of them.
std::vector<Entry> CollectEntries(const std::u16string& directory);

}  // namespace tool
