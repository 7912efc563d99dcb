// Paths inside a volume: UTF-16, relative to the root, with backslashes between the components and
// none at either end. The empty path stands for the root directory here; the library itself has
// no path for it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

// The longest path that the library takes, in units.
constexpr std::size_t kMaxPathUnits = 259;
constexpr const char* kPathTooLong = "the path is too long: FAT paths end at 259 characters";

// The longest name that every system reads.
constexpr std::size_t kMaxNameUnits = 255;

// Accepts both kinds of slashes, leading, trailing and repeated ones. Throws Failure when the
// argument is no UTF-8.
std::u16string VolumePathFromArgument(const std::string& argument);

std::u16string JoinPath(std::u16string_view directory, std::u16string_view name);

// The path of the directory that holds `path`, which is not the root.
std::u16string ParentPath(std::u16string_view path);

// The last component.
std::u16string_view LastName(std::u16string_view path);

// The path as the tool shows it: UTF-8, starting with a slash, with slashes between components.
std::string DisplayPath(std::u16string_view path);

// Whether the name, used in a path, means an entry of just this name. A path can neither hold the
// characters that FAT forbids nor two dots in a row, and the library cuts leading spaces and
// trailing spaces and dots off: a damaged or hostile volume may hold names that a path either
// cannot express or that would lead to another entry.
bool IsAddressable(std::u16string_view name);

// Why no entry of this name should be made; empty when one can be.
std::string WhyNameRefused(std::u16string_view name);

// A path for a command that changes the volume: every component means what it says, and the path
// is not too long. Throws Failure.
std::u16string ChangePathFromArgument(const std::string& argument);

// Throws Failure when the path is longer than the library takes.
void RequirePathLength(const std::u16string& path);

// Whether an argument ends in a slash, and so can only mean a directory.
bool EndsInSeparator(const std::string& argument);

// Whether `path` is `directory` or lies below it. Letter case matters.
bool IsWithin(std::u16string_view path, std::u16string_view directory);

}  // namespace tool
