#include "volume_path.h"

#include <algorithm>

#include "report.h"
#include "utf.h"

namespace tool {

namespace {

constexpr char16_t kSeparator = u'\\';

}  // namespace

std::u16string VolumePathFromArgument(const std::string& argument) {
    const auto text = Utf16FromUtf8(argument);
    if (!text) {
        throw Failure{argument, "the path is no valid UTF-8"};
    }
    std::u16string path;
    for (const char16_t unit : *text) {
        const bool isSeparator = unit == u'/' || unit == kSeparator;
        if (!isSeparator) {
            path.push_back(unit);
        } else if (!path.empty() && path.back() != kSeparator) {
            path.push_back(kSeparator);
        }
    }
    if (!path.empty() && path.back() == kSeparator) {
        path.pop_back();
    }
    return path;
}

std::u16string JoinPath(std::u16string_view directory, std::u16string_view name) {
    std::u16string path(directory);
    if (!path.empty()) {
        path.push_back(kSeparator);
    }
    return path.append(name);
}

std::u16string ParentPath(std::u16string_view path) {
    const std::size_t separator = path.rfind(kSeparator);
    return std::u16string(path.substr(0, separator == path.npos ? 0 : separator));
}

std::u16string_view LastName(std::u16string_view path) {
    const std::size_t separator = path.rfind(kSeparator);
    return path.substr(separator == path.npos ? 0 : separator + 1);
}

std::string DisplayPath(std::u16string_view path) {
    std::u16string shown(path);
    std::replace(shown.begin(), shown.end(), kSeparator, u'/');
    return '/' + Utf8FromUtf16(shown);
}

bool IsAddressable(std::u16string_view name) {
    constexpr std::u16string_view kForbidden = u"\"*/:<>?\\|\x7F";
    const auto isForbidden = [=](char16_t unit) {
        return unit < 0x20 || kForbidden.find(unit) != kForbidden.npos;
    };
    return !name.empty() && name.front() != u' ' && name.back() != u' ' && name.back() != u'.' &&
           name.find(u"..") == name.npos && std::none_of(name.begin(), name.end(), isForbidden);
}

}  // namespace tool
