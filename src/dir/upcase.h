// The fixed upper-case mapping of names. Every name and path comparison rests on it, so it
// consults no locale and does not follow the versions of Unicode.
#pragma once

#include <array>
#include <cstdint>

namespace fatvol {

// What to add to a unit, modulo 65,536. Units are grouped in pages of 256; all pages without
// change share page 0. A lookup is two loads in 5 KiB.
struct UpcaseTable {
    static constexpr unsigned PageCount = 10;
    std::array<std::uint8_t, 256> pageOf{};
    std::array<std::array<std::uint16_t, 256>, PageCount> delta{};
};

extern const UpcaseTable Upcase;

inline char16_t UpcaseUnit(char16_t unit) {
    const unsigned page = Upcase.pageOf[unit >> 8];
    return static_cast<char16_t>(unit + Upcase.delta[page][unit & 0xFF]);
}

// The unit as it counts when texts are compared. Two letters outside ASCII have upper-case forms
// within it (dotless i and long s); they are told apart from those, so that names that only share a
// key stay two names.
inline char16_t FoldUnit(char16_t unit) {
    return unit == 0x0131 || unit == 0x017F ? unit : UpcaseUnit(unit);
}

// Whether two runs of units are equal but for their case.
bool EqualFolded(const char16_t* a, const char16_t* b, std::uint32_t units);

}  // namespace fatvol
