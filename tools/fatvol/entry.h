// A directory entry as the tool handles it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fat_times.h"
#include "fatvol.h"

namespace tool {

enum AttributeBit : unsigned int {
    kReadOnly = 0x01,
    kHidden = 0x02,
    kSystem = 0x04,
    kDirectory = 0x10,
    kArchive = 0x20,
};

// Why an entry without any name cannot be dealt with.
constexpr const char* kNameNotConvertible = "an entry's name cannot be converted in this locale";

struct Entry {
    std::u16string longName;   // empty when the entry has none
    std::u16string shortName;  // empty when the locale cannot express it
    unsigned int attributes = 0;
    std::uint32_t sizeBytes = 0;
    VolumeTime created = kNoTime;
    VolumeTime accessed = kNoTime;
    VolumeTime modified = kNoTime;

    bool operator==(const Entry&) const = default;

    bool IsDirectory() const { return (attributes & kDirectory) != 0; }

    // The name under which the library finds the entry. Empty when it has neither name.
    const std::u16string& Name() const { return longName.empty() ? shortName : longName; }
};

// A name from a field of the library's records, which is terminated only when there is room.
template <std::size_t capacity>
std::u16string NameInField(const char16_t (&field)[capacity]) {
    return std::u16string(field, std::find(field, field + capacity, u'\0'));
}

// `info` must have been zero before the library filled it.
Entry EntryFromInfo(const FatFileInfo& info);

// Attributes and times for the library to set; it takes nothing else from the record.
FatFileInfo InfoFromEntry(const Entry& entry);

// Whether this is one of the entries "." and "..".
bool IsDotEntry(const Entry& entry);

// Alphabetical order for the eye: ASCII letters without case first, then by unit.
bool NameComesBefore(const Entry& left, const Entry& right);

// The name with the small letters of ASCII made capital ones.
std::u16string FoldAscii(std::u16string_view text);

// Whether two names differ in nothing but the case of ASCII letters.
bool IsSameName(std::u16string_view left, std::u16string_view right);

// Five columns such as "d-h-a": directory, read-only, hidden, system, archive.
std::string AttributeLetters(unsigned int attributes);

}  // namespace tool
