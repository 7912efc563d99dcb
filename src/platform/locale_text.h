// The bytes of short names are text in the code page of the process locale. These are the only
// places where UTF-16 and that code page meet.
//
// Each conversion starts from a fresh state; nothing is remembered between calls. The systems agree
// on what converts: in the "C" locale only 7-bit text does (a byte from 0x80 up has no agreed
// meaning there), no letter stands in for another one, and a byte from 0x80 to 0x9F that a one-byte
// code page leaves unassigned is the control character of that number.
#pragma once

#include <climits>

namespace fatvol {

// The most bytes one UTF-16 unit converts to, in any locale.
constexpr unsigned MaxUnitBytes = MB_LEN_MAX;

// The longest text BytesToUnits accepts, in bytes.
constexpr unsigned MaxTextBytes = 1024;

// Selects the environment's locale for the whole process. An environment that names a locale
// which is not installed leaves the current one in force.
void SelectEnvironmentLocale();

// Converts one unit into `bytes`, which has room for MaxUnitBytes. Returns the number of bytes
// written, or zero or less when the code page lacks the unit or it is half of a surrogate pair;
// `bytes` is then unspecified. The unit 0 becomes one zero byte.
int UnitToBytes(char16_t unit, char* bytes);

// Converts up to the first zero byte, the end of the bytes or `maxUnits` units, whichever comes
// first. A surrogate pair is stored whole or not at all; no terminating unit is required, and one
// may be written only within `maxUnits`. Returns the number of units without a terminator, or -1
// for bytes that are no text or that end inside a character, and for more than MaxTextBytes;
// `units` is then unspecified.
int BytesToUnits(const char* bytes, unsigned byteCount, char16_t* units, unsigned maxUnits);

}  // namespace fatvol
