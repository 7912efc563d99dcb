#include "utf.h"

#include <fmt/format.h>

namespace tool {

namespace {

constexpr char32_t kFirstSurrogate = 0xD800;
constexpr char32_t kFirstLowSurrogate = 0xDC00;
constexpr char32_t kLastSurrogate = 0xDFFF;

bool IsHighSurrogate(char32_t unit) {
    return unit >= kFirstSurrogate && unit < kFirstLowSurrogate;
}

bool IsLowSurrogate(char32_t unit) {
    return unit >= kFirstLowSurrogate && unit <= kLastSurrogate;
}

void AppendUtf8(std::string* text, char32_t codePoint) {
    const auto append = [text](char32_t byte) { text->push_back(static_cast<char>(byte)); };
    if (codePoint < 0x80) {
        append(codePoint);
        return;
    }
    if (codePoint < 0x800) {
        append(0xC0 | codePoint >> 6);
    } else {
        if (codePoint < 0x10000) {
            append(0xE0 | codePoint >> 12);
        } else {
            append(0xF0 | codePoint >> 18);
            append(0x80 | (codePoint >> 12 & 0x3F));
        }
        append(0x80 | (codePoint >> 6 & 0x3F));
    }
    append(0x80 | (codePoint & 0x3F));
}

struct Decoded {
    char32_t codePoint;
    std::size_t byteCount;  // 0: no well-formed sequence starts here
};

// Decodes the code point, a surrogate included, at the start of a text that is not empty.
Decoded DecodeFirst(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t byteCount = lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (byteCount == 0 || lead > 0xF4 || text.size() < byteCount) {
        return {0, 0};
    }
    char32_t codePoint = lead & (0xFFU >> (byteCount + 1));
    for (std::size_t i = 1; i < byteCount; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0) != 0x80) {
            return {0, 0};
        }
        codePoint = codePoint << 6 | (byte & 0x3FU);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (codePoint < kSmallest[byteCount] || codePoint > 0x10FFFF) {
        return {0, 0};
    }
    return {codePoint, byteCount};
}

bool IsHarmlessOnTerminal(char32_t codePoint) {
    const bool isControl = codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
    const bool isSurrogate = codePoint >= kFirstSurrogate && codePoint <= kLastSurrogate;
    const bool turnsDirection = codePoint == 0x061C ||
                                (codePoint >= 0x200E && codePoint <= 0x200F) ||
                                (codePoint >= 0x202A && codePoint <= 0x202E) ||
                                (codePoint >= 0x2066 && codePoint <= 0x2069);
    const bool breaksLine = codePoint == 0x2028 || codePoint == 0x2029;
    return !isControl && !isSurrogate && !turnsDirection && !breaksLine;
}

}  // namespace

std::string Utf8FromUtf16(std::u16string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t codePoint = text[i];
        if (IsHighSurrogate(codePoint) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            const char32_t low = text[++i];
            codePoint =
                0x10000 + ((codePoint - kFirstSurrogate) << 10) + (low - kFirstLowSurrogate);
        }
        AppendUtf8(&result, codePoint);
    }
    return result;
}

std::optional<std::u16string> Utf16FromUtf8(std::string_view text) {
    std::u16string result;
    bool endsInLoneHigh = false;
    while (!text.empty()) {
        const auto [codePoint, byteCount] = DecodeFirst(text);
        // Two surrogates that belong together have one spelling only: the four bytes of the pair.
        if (byteCount == 0 || (endsInLoneHigh && IsLowSurrogate(codePoint))) {
            return std::nullopt;
        }
        if (codePoint < 0x10000) {
            result.push_back(static_cast<char16_t>(codePoint));
        } else {
            const char32_t offset = codePoint - 0x10000;
            result.push_back(static_cast<char16_t>(kFirstSurrogate + (offset >> 10)));
            result.push_back(static_cast<char16_t>(kFirstLowSurrogate + (offset & 0x3FF)));
        }
        endsInLoneHigh = IsHighSurrogate(codePoint);
        text.remove_prefix(byteCount);
    }
    return result;
}

std::string EscapeControls(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto [codePoint, byteCount] = DecodeFirst(text);
        if (byteCount == 0) {
            const auto byte = static_cast<unsigned char>(text.front());
            result += fmt::format("\\x{{{:02X}}}", static_cast<unsigned int>(byte));
            text.remove_prefix(1);
            continue;
        }
        if (IsHarmlessOnTerminal(codePoint)) {
            result += text.substr(0, byteCount);
        } else {
            result += fmt::format("\\u{{{:04X}}}", static_cast<unsigned int>(codePoint));
        }
        text.remove_prefix(byteCount);
    }
    return result;
}

}  // namespace tool
