// The case-insensitive key of a name or path: three hashes of its upper-cased units and its size.
// Equal names have equal keys. Different names may have equal keys too, so whoever finds an entry
// by its key compares the text as well.
#pragma once

#include <cstdint>

namespace fatvol {

struct NameKey {
    std::uint32_t HashA = 0;
    std::uint32_t HashB = 0;
    std::uint32_t HashC = 0;
    std::uint32_t size = 2;  // bytes of the string in UTF-16, with its terminating zero unit

    bool operator==(const NameKey&) const = default;
};

// Builds a key unit by unit, so that one walk over a path gives the keys of all its prefixes.
class NameHasher {
public:
    // Adds the next unit, already upper-cased.
    void Add(char16_t upcasedUnit);

    // The key of the units added so far.
    NameKey Key() const;

private:
    std::uint32_t a = 0, sum = 0, mix = 0, rotated = 0, count = 0;
};

// The key of a zero-terminated string.
NameKey MakeNameKey(const char16_t* string);

}  // namespace fatvol
