#include <clocale>
#include <cstdlib>
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

constexpr bool IsUpperControl(char32_t character) {
    return character >= 0x80 && character <= 0x9F;
}

// The character that starts a text, and its bytes; invalid (-1) and cut short (-2) as mbrtowc tells
// it. A byte that a one-byte code page leaves unassigned is the control character of its number,
// which is how other systems hold the same code page: a name written there stays within reach.
std::size_t DecodeFirst(const char* text, std::size_t byteCount, char32_t* character,
                        std::mbstate_t* state) {
    wchar_t wide = 0;
    const std::size_t used = std::mbrtowc(&wide, text, byteCount, state);
    *character = static_cast<char32_t>(wide);
    const auto byte = static_cast<unsigned char>(*text);
    if (used == static_cast<std::size_t>(-1) && MB_CUR_MAX == 1 && IsUpperControl(byte)) {
        *character = byte;
        *state = {};
        return 1;
    }
    return used;
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
    const std::size_t byteCount = std::wcrtomb(bytes, static_cast<wchar_t>(unit), &state);
    if (byteCount <= MaxUnitBytes) {
        return static_cast<int>(byteCount);
    }
    char32_t back = 0;
    state = {};
    bytes[0] = static_cast<char>(unit);
    const bool isControl = IsUpperControl(unit) && DecodeFirst(bytes, 1, &back, &state) == 1;
    return isControl && back == unit ? 1 : -1;
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
        char32_t character = 0;
        const std::size_t used =
            DecodeFirst(bytes, static_cast<std::size_t>(end - bytes), &character, &state);
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
