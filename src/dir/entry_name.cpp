#include "dir/entry_name.h"

#include <cstring>
#include <string_view>

#include "dir/upcase.h"
#include "platform/locale_text.h"

namespace fatvol {
namespace {

constexpr bool IsRefusedInShortName(char16_t unit) {
    constexpr std::u16string_view Refused = u"\"*+,./:;<=>?[\\]|\x7F";
    return unit <= 0x20 || Refused.find(unit) != Refused.npos;
}

// Copies the name and notes its length and last dot. True when it has several dots.
bool CopyName(const char16_t* name, ParsedName& parsed) {
    bool severalDots = false;
    std::uint32_t length = 0;
    for (; name[length] != 0 && length < MaxLongNameUnits; ++length) {
        parsed.name[length] = name[length];
        if (name[length] == u'.') {
            severalDots = parsed.lastDot != NoDot;
            parsed.lastDot = length;
        }
    }
    parsed.nameLength = parsed.longLength = length;
    return severalDots;
}

bool ConvertExtension(const ParsedName& parsed, std::uint8_t* extension, bool* wide) {
    if (parsed.lastDot == NoDot) {
        return true;
    }
    const std::uint32_t length = parsed.longLength - parsed.lastDot - 1;
    return length <= ShortExtensionSize &&
           ConvertShortPart(parsed.name + parsed.lastDot + 1, length, extension, ShortExtensionSize,
                            wide);
}

bool ConvertBase(const ParsedName& parsed, std::uint8_t* base, bool* wide) {
    const std::uint32_t length = parsed.lastDot == NoDot ? parsed.longLength : parsed.lastDot;
    return length != 0 && length <= ShortBaseSize &&
           ConvertShortPart(parsed.name, length, base, ShortBaseSize, wide);
}

}  // namespace

ParsedName ParseEntryName(const char16_t* name) {
    ParsedName parsed;
    if (CopyName(name, parsed)) {
        return parsed;
    }
    std::uint8_t form[ShortNameSize];
    std::memset(form, ' ', sizeof form);
    bool wide = false;
    if (!ConvertExtension(parsed, form + ShortBaseSize, &wide) ||
        !ConvertBase(parsed, form, &wide)) {
        return parsed;
    }
    if (form[0] == DeletedMark) {
        form[0] = LeadingE5Substitute;
    }
    std::memcpy(parsed.shortForm, form, sizeof form);
    if (!wide) {
        parsed.longLength = 0;
    }
    return parsed;
}

bool ConvertShortPart(const char16_t* units, std::uint32_t count, std::uint8_t* bytes,
                      std::uint32_t maximum, bool* wide) {
    std::uint32_t used = 0;
    for (;;) {
        const char16_t unit = *units++;
        if (unit > 0x7F) {
            *wide = true;
            char converted[MaxUnitBytes];
            const int length = UnitToBytes(UpcaseUnit(unit), converted);
            if (length <= 0 || used + static_cast<std::uint32_t>(length) > maximum) {
                return false;
            }
            std::memcpy(bytes + used, converted, static_cast<std::size_t>(length));
            used += static_cast<std::uint32_t>(length);
        } else {
            if (IsRefusedInShortName(unit)) {
                return false;
            }
            bytes[used++] = static_cast<std::uint8_t>(UpcaseUnit(unit));
        }
        if (count <= 1) {
            return true;
        }
        --count;
        if (used >= maximum) {
            return false;
        }
    }
}

}  // namespace fatvol
