#include "dir/short_name.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "dir/dir_lookup.h"
#include "dir/upcase.h"
#include "platform/locale_text.h"

namespace fatvol {
namespace {

constexpr std::uint32_t TailDigits = 5;

// The number of the next tail, from 1 to 99999, and how many of its digits are written. The width
// only grows until the numbers start over.
struct TailCounter {
    char digits[TailDigits + 1] = "00001";
    std::uint32_t width = 1;
};

TailCounter NextTail;

void AdvanceTail() {
    std::uint32_t place = TailDigits;
    while (place > 0 && NextTail.digits[place - 1] == '9') {
        NextTail.digits[--place] = '0';
    }
    if (place == 0) {
        NextTail = TailCounter{};
        return;
    }
    ++NextTail.digits[place - 1];
    NextTail.width = std::max(NextTail.width, TailDigits - (place - 1));
}

// The byte of a 7-bit unit above the space; 0 for the dot, which is dropped.
std::uint8_t BasisByte(char16_t unit) {
    constexpr std::u16string_view Replaced = u"\"*+,/:;<=>?[\\]|\x7F";
    if (unit == u'.') {
        return 0;
    }
    return Replaced.find(unit) != Replaced.npos ? std::uint8_t{'_'}
                                                : static_cast<std::uint8_t>(UpcaseUnit(unit));
}

// Writes basis and tail into the base of a short form whose extension is in place.
void WriteBase(ParsedName& parsed, std::uint32_t baseLength) {
    std::uint8_t* form = parsed.shortForm;
    std::memset(form, ' ', ShortBaseSize);
    const std::uint32_t width = NextTail.width;
    const std::uint32_t count =
        ConvertBasisPart(form, ShortBaseSize - 1 - width, parsed.name, baseLength);
    if (form[0] == DeletedMark) {
        form[0] = LeadingE5Substitute;
    }
    form[count] = '~';
    std::memcpy(form + count + 1, NextTail.digits + TailDigits - width, width);
}

}  // namespace

std::uint32_t ConvertBasisPart(std::uint8_t* bytes, std::uint32_t maximum, const char16_t* units,
                               std::uint32_t count) {
    std::uint32_t used = 0;
    for (std::uint32_t i = 0; i < count && used < maximum; ++i) {
        char converted[MaxUnitBytes];
        std::uint32_t length = 1;
        if (units[i] > 0x7F) {
            const int result = UnitToBytes(UpcaseUnit(units[i]), converted);
            length = result > 0 ? static_cast<std::uint32_t>(result) : 1;
            converted[0] = result > 0 ? converted[0] : '_';
        } else {
            const std::uint8_t byte = units[i] <= 0x20 ? std::uint8_t{0} : BasisByte(units[i]);
            length = byte != 0 ? 1 : 0;
            converted[0] = static_cast<char>(byte);
        }
        if (used + length > maximum) {
            break;
        }
        std::memcpy(bytes + used, converted, length);
        used += length;
    }
    return used;
}

void GenerateShortName(const CFatFile& directory, ParsedName& parsed) {
    std::uint32_t baseLength = parsed.nameLength;
    std::memset(parsed.shortForm, ' ', ShortNameSize);
    if (parsed.lastDot != NoDot && parsed.lastDot > 0) {
        baseLength = parsed.lastDot;
        ConvertBasisPart(parsed.shortForm + ShortBaseSize, ShortExtensionSize,
                         parsed.name + parsed.lastDot + 1, parsed.nameLength - parsed.lastDot - 1);
    }
    do {
        WriteBase(parsed, baseLength);
        AdvanceTail();
    } while (IsShortNameTaken(directory, parsed.shortForm));
}

void ResetShortNameTailsForTests() {
    NextTail = TailCounter{};
}

}  // namespace fatvol
