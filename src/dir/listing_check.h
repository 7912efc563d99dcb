// The comparison of listings with the entries they were parsed from: for tests.
#pragma once

struct FatVolume;

namespace fatvol {

// Whether the listing of every open directory agrees with the entries in the directory's cached
// blocks: bits and items for what stands there, and the end mark in its slot. A host that writes to
// a directory through a handle makes this false.
bool AreListingsInStep(const FatVolume& volume);

}  // namespace fatvol
