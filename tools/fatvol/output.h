// Standard output, and how the tool words what it shows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "entry.h"

namespace tool {

// Throw Failure when standard output does not take the bytes.
void WriteOutput(const void* bytes, std::size_t count);
void PrintLine(std::string_view line);
void FlushOutput();

// A name for standard output: as it is, but with control characters escaped on a terminal.
std::string ShownName(std::u16string_view name);
// The same for the name of an entry, which may have none that can be converted.
std::string ShownEntryName(const Entry& entry);

std::string ShownText(const std::string& text);

// For example "512 B", "12.3 MiB".
std::string HumanBytes(std::uint64_t byteCount);

}  // namespace tool
