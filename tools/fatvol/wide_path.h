// What the platform_*_windows.cpp share: the system's UTF-16 for the tool's UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tool::platform {

std::wstring WideFromUtf8(std::string_view text);
std::string Utf8FromWide(std::wstring_view text);

// The full path in the form that is exempt from the limit of 260 units.
std::wstring WidePath(const std::string& path);

// The path of an open directory, without links on the way: as long as it is open without shared
// deletion, nothing can take its place there. Empty when the system cannot tell.
std::wstring PathOfHandle(std::intptr_t handle);

}  // namespace tool::platform
