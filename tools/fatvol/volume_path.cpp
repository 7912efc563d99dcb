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

namespace {

std::string WhyNotAddressable(std::u16string_view name) {
    constexpr std::u16string_view kForbidden = u"\"*/:<>?\\|\x7F";
    const auto isForbidden = [=](char16_t unit) {
        return unit < 0x20 || kForbidden.find(unit) != kForbidden.npos;
    };
    if (name.empty()) {
        return "a name must not be empty";
    }
    if (std::any_of(name.begin(), name.end(), isForbidden)) {
        return "the name holds a character that FAT refuses: \" * / : < > ? \\ | or a control one";
    }
    if (name.front() == u' ' || name.back() == u' ' || name.back() == u'.') {
        return "a space in front and spaces and dots at the end of a name would be cut off";
    }
    if (name.find(u"..") != name.npos) {
        return "no path can hold the two dots in a row of this name";
    }
    return "";
}

}  // namespace

bool IsAddressable(std::u16string_view name) {
    return WhyNotAddressable(name).empty();
}

std::string WhyNameRefused(std::u16string_view name) {
    return name.size() > kMaxNameUnits ? "the name is too long: names end at 255 characters"
                                       : WhyNotAddressable(name);
}

std::u16string ChangePathFromArgument(const std::string& argument) {
    const std::u16string path = VolumePathFromArgument(argument);
    for (std::u16string rest = path; !rest.empty(); rest = ParentPath(rest)) {
        if (const std::string why = WhyNotAddressable(LastName(rest)); !why.empty()) {
            throw Failure{DisplayPath(path), why};
        }
    }
    RequirePathLength(path);
    return path;
}

void RequirePathLength(const std::u16string& path) {
    if (path.size() > kMaxPathUnits) {
        throw Failure{DisplayPath(path), kPathTooLong};
    }
}

bool EndsInSeparator(const std::string& argument) {
    return argument.size() > 1 && (argument.back() == '/' || argument.back() == '\\');
}

bool IsWithin(std::u16string_view path, std::u16string_view directory) {
    return directory.empty() || path == directory ||
           (path.size() > directory.size() && path.substr(0, directory.size()) == directory &&
            path[directory.size()] == kSeparator);
}

}  // namespace tool
