// UTF-8 outside, UTF-16 inside. A volume may hold names with lone surrogates, which UTF-8 cannot
// express; they are written as the three bytes that UTF-8 would use for a code point of that value
// (the WTF-8 encoding), so that every name survives the way out and back.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

std::string Utf8FromUtf16(std::u16string_view text);

// Nothing when `text` is neither UTF-8 nor UTF-8 with lone surrogates.
std::optional<std::u16string> Utf16FromUtf8(std::string_view text);

// The text with everything written as \u{...} that could move the cursor, change the terminal's
// state or the direction of writing, or that is no UTF-8 (\x{...}, byte by byte).
std::string EscapeControls(std::string_view text);

}  // namespace tool
