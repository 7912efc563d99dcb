#include <windows.h>

#include "utf.h"
#include "wide_path.h"

namespace tool::platform {

namespace {

// Calls a function that tells the length it needs, with or without the terminator, or 0 on failure.
template <typename Call>
std::wstring FillString(Call call) {
    std::wstring text(MAX_PATH, L'\0');
    DWORD length = call(text.data(), static_cast<DWORD>(text.size()));
    if (length >= text.size()) {
        text.resize(length + std::size_t{1});
        length = call(text.data(), length + 1);
    }
    text.resize(length < text.size() ? length : 0);
    return text;
}

}  // namespace

std::wstring WideFromUtf8(std::string_view text) {
    // What is no UTF-8 can be no name either; the replacement character will not be found.
    const std::u16string units = Utf16FromUtf8(text).value_or(u"\uFFFD");
    return {units.begin(), units.end()};
}

std::string Utf8FromWide(std::wstring_view text) {
    return Utf8FromUtf16(std::u16string(text.begin(), text.end()));
}

std::wstring WidePath(const std::string& path) {
    const std::wstring given = WideFromUtf8(path);
    if (given.starts_with(L"\\\\?\\") || given.starts_with(L"\\\\.\\")) {
        return given;
    }
    const std::wstring full = FillString([&](wchar_t* buffer, DWORD capacity) {
        return GetFullPathNameW(given.c_str(), capacity, buffer, nullptr);
    });
    if (full.starts_with(L"\\\\.\\")) {  // the name of a device
        return full;
    }
    return full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
}

std::wstring PathOfHandle(std::intptr_t handle) {
    return FillString([&](wchar_t* buffer, DWORD capacity) {
        return GetFinalPathNameByHandleW(reinterpret_cast<HANDLE>(handle), buffer, capacity,
                                         FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
    });
}

}  // namespace tool::platform
