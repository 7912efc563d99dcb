#include <clocale>
#include <cstdlib>
#include <cstring>

#include "platform/locale_text.h"

namespace fatvol {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "wide characters are UTF-16 units here");

void SelectEnvironmentLocale() {
    std::setlocale(LC_ALL, "");
}

int UnitToBytes(char16_t unit, char* bytes) {
    if (unit >= 0xD800 && unit <= 0xDFFF) {
        return -1;
    }
    std::wctomb(nullptr, 0);  // back to the initial state
    return std::wctomb(bytes, static_cast<wchar_t>(unit));
}

int BytesToUnits(const char* bytes, unsigned byteCount, char16_t* units, unsigned maxUnits) {
    if (byteCount > MaxTextBytes) {
        return -1;
    }
    char text[MaxTextBytes + 1];  // the runtime library finds the end by a zero byte only
    std::memcpy(text, bytes, byteCount);
    text[byteCount] = 0;
    const std::size_t unitCount = std::mbstowcs(reinterpret_cast<wchar_t*>(units), text, maxUnits);
    return unitCount == static_cast<std::size_t>(-1) ? -1 : static_cast<int>(unitCount);
}

}  // namespace fatvol
