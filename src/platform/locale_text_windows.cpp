#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>

#include "platform/locale_text.h"

namespace fatvol {

namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "wide characters are UTF-16 units here");

bool SevenBitLocale() {
    return std::strcmp(std::setlocale(LC_CTYPE, nullptr), "C") == 0;
}

// The runtime library takes similar letters for those that a code page lacks, such as a for \u0101:
// only what comes back as it was counts as converted.
bool ComesBack(wchar_t unit, const char* bytes, int byteCount) {
    wchar_t back = 0;
    return std::mbtowc(&back, bytes, static_cast<std::size_t>(byteCount)) >= 0 && back == unit;
}

}  // namespace

void SelectEnvironmentLocale() {
    std::setlocale(LC_ALL, "");
}

int UnitToBytes(char16_t unit, char* bytes) {
    const auto wide = static_cast<wchar_t>(unit);
    if ((unit >= 0xD800 && unit <= 0xDFFF) || (unit > 0x7F && SevenBitLocale())) {
        return -1;
    }
    std::wctomb(nullptr, 0);  // back to the initial state
    const int byteCount = std::wctomb(bytes, wide);
    return byteCount > 0 && ComesBack(wide, bytes, byteCount) ? byteCount : -1;
}

int BytesToUnits(const char* bytes, unsigned byteCount, char16_t* units, unsigned maxUnits) {
    if (byteCount > MaxTextBytes) {
        return -1;
    }
    char text[MaxTextBytes + 1];  // the runtime library finds the end by a zero byte only
    std::memcpy(text, bytes, byteCount);
    text[byteCount] = 0;
    const std::size_t unitCount = std::mbstowcs(reinterpret_cast<wchar_t*>(units), text, maxUnits);
    const bool isText = unitCount != static_cast<std::size_t>(-1);
    const auto isSevenBit = [](char16_t unit) { return unit <= 0x7F; };
    if (!isText || (SevenBitLocale() && !std::all_of(units, units + unitCount, isSevenBit))) {
        return -1;
    }
    return static_cast<int>(unitCount);
}

}  // namespace fatvol
