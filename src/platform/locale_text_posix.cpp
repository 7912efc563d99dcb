#include <clocale>
#include <cstring>
#include <cwchar>

#include "platform/locale_text.h"

namespace fatvol {
namespace {

constexpr char32_t FirstSurrogate = 0xD800;
constexpr char32_t FirstLowSurrogate = 0xDC00;
constexpr char32_t LastSurrogate = 0xDFFF;
constexpr char32_t FirstPairedCharacter = 0x10000;
constexpr char32_t LastCharacter = 0x10FFFF;

static_assert(sizeof(wchar_t) == 4, "a wide character holds any character here");

bool IsSurrogate(char32_t character) {
    return character >= FirstSurrogate && character <= LastSurrogate;
}

bool SevenBitLocale() {
    return std::strcmp(std::setlocale(LC_CTYPE, nullptr), "C") == 0;
}

// Some runtime libraries stand a surrogate for a byte that is no text; that is refused as well.
bool IsCharacter(char32_t character, bool sevenBit) {
    return character <= (sevenBit ? 0x7F : LastCharacter) && !IsSurrogate(character);
}

unsigned StoreCharacter(char32_t character, char16_t* units) {
    if (character < FirstPairedCharacter) {
        units[0] = static_cast<char16_t>(character);
        return 1;
    }
    const char32_t offset = character - FirstPairedCharacter;
    units[0] = static_cast<char16_t>(FirstSurrogate + (offset >> 10));
    units[1] = static_cast<char16_t>(FirstLowSurrogate + (offset & 0x3FF));
    return 2;
}

}  // namespace

void SelectEnvironmentLocale() {
    std::setlocale(LC_ALL, "");
}

int UnitToBytes(char16_t unit, char* bytes) {
    if (!IsCharacter(unit, SevenBitLocale())) {
        return -1;
    }
    std::mbstate_t state{};
    return static_cast<int>(std::wcrtomb(bytes, static_cast<wchar_t>(unit), &state));
}

int BytesToUnits(const char* bytes, unsigned byteCount, char16_t* units, unsigned maxUnits) {
    if (byteCount > MaxTextBytes) {
        return -1;
    }
    const bool sevenBit = SevenBitLocale();
    const char* const end = bytes + byteCount;
    std::mbstate_t state{};
    unsigned unitCount = 0;
    while (bytes != end && unitCount < maxUnits) {
        wchar_t wide = 0;
        const std::size_t used =
            std::mbrtowc(&wide, bytes, static_cast<std::size_t>(end - bytes), &state);
        const auto character = static_cast<char32_t>(wide);
        const bool whole = used <= MaxTextBytes;  // else invalid (-1) or cut short (-2)
        if (!whole || !IsCharacter(character, sevenBit)) {
            return -1;
        }
        if (character == 0 || (character >= FirstPairedCharacter && maxUnits - unitCount < 2)) {
            break;
        }
        unitCount += StoreCharacter(character, units + unitCount);
        bytes += used;
    }
    return static_cast<int>(unitCount);
}

}  // namespace fatvol
