#include "api/path_argument.h"

#include <cstdint>
#include <string_view>

#include "dir/upcase.h"

namespace fatvol {

char16_t PathBuffer[PathBufferUnits];
char16_t TargetPathBuffer[PathBufferUnits];

namespace {

constexpr bool IsRefusedInPath(char16_t unit) {
    // The separator is refused where it would close an empty component.
    constexpr std::u16string_view Refused = u"\"*/:<>?\\|\x7F";
    return unit < 0x20 || Refused.find(unit) != Refused.npos;
}

const char16_t* SkipSpaces(const char16_t* source) {
    while (*source == u' ') {
        ++source;
    }
    return source;
}

// The normalised path as far as it is written. Spaces and dots that are dropped later count
// towards the limit while they stand.
struct Output {
    char16_t* units;
    std::uint32_t length = 0;
    std::uint32_t componentStart = 0;

    bool Append(char16_t unit) {
        if (length == MaxPathUnits) {
            return false;
        }
        units[length++] = unit;
        return true;
    }
    void DropTrailing(std::u16string_view dropped, std::uint32_t downTo) {
        while (length > downTo && dropped.find(units[length - 1]) != dropped.npos) {
            --length;
        }
    }
    // Ends the component just written; false when nothing of it remains.
    bool EndComponent() {
        DropTrailing(u" .", componentStart);
        if (length == componentStart || !Append(u'\\')) {
            return false;
        }
        componentStart = length;
        return true;
    }
};

bool CopyComponents(const char16_t* source, Output& output) {
    for (; *source != 0; ++source) {
        if (*source == u'\\' && output.length > output.componentStart) {
            if (!output.EndComponent()) {
                return false;
            }
            source = SkipSpaces(source + 1) - 1;
            continue;
        }
        const bool twoDots = source[0] == u'.' && source[1] == u'.';
        if (IsRefusedInPath(*source) || twoDots || !output.Append(*source)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool NormalizePath(const char16_t* source, char16_t* destination) {
    if (!source) {
        return false;
    }
    source = SkipSpaces(source);
    if (*source == u'\\') {
        source = SkipSpaces(source + 1);
    }
    Output output{destination};
    if (!CopyComponents(source, output)) {
        return false;
    }
    output.DropTrailing(u" .\\", 0);
    destination[output.length] = 0;
    return output.length != 0;
}

PathRelation RelationOf(const char16_t* path, const char16_t* directory) {
    while (*path != 0 && FoldUnit(*path) == FoldUnit(*directory)) {
        ++path;
        ++directory;
    }
    if (*path == 0 && (*directory == 0 || *directory == u'\\')) {
        return PathRelation::Contains;
    }
    const bool below = *directory == 0 && *path == u'\\';
    const bool deeper =
        below && std::u16string_view(path + 1).find(u'\\') != std::u16string_view::npos;
    return below && !deeper ? PathRelation::DirectlyInside : PathRelation::Other;
}

}  // namespace fatvol
