// The paths that hosts give, brought into the one form that lookups work on.
#pragma once

#include "ops/path_lookup.h"

namespace fatvol {

// The normalised paths of the call under way. Every call overwrites them.
extern char16_t PathBuffer[PathBufferUnits];
extern char16_t TargetPathBuffer[PathBufferUnits];  // the second path of a rename or move

// Checks a path and converts it: components separated by single backslashes, no separator at
// either end, no spaces around a component and no dots after it. False when it is null, empty, too
// long or holds what no name may hold; the destination (PathBufferUnits units) is then unspecified.
bool NormalizePath(const char16_t* source, char16_t* destination);

// How a path stands to a directory, both normalised, letter case aside.
enum class PathRelation {
    Contains,        // the path is the directory, or the directory lies below it
    DirectlyInside,  // the path names an entry of the directory itself
    Other
};
PathRelation RelationOf(const char16_t* path, const char16_t* directory);

}  // namespace fatvol
