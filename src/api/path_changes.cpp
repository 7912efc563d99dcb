// The exported functions that change the tree by path.
#include <string_view>

#include "api/fatvol.h"
#include "api/library_state.h"
#include "api/path_argument.h"
#include "ops/change_by_path.h"
#include "ops/create_by_path.h"
#include "volume/fat_volume.h"

using namespace fatvol;

namespace {

bool HasSeparator(const char16_t* path) {
    return std::u16string_view(path).find(u'\\') != std::u16string_view::npos;
}

const char16_t* LastComponent(const char16_t* path) {
    return path + (std::u16string_view(path).rfind(u'\\') + 1);
}

}  // namespace

bool Fat_CreateDir(const char16_t* path, unsigned char attributes) noexcept {
    FatVolume* volume = ChangeableVolume();
    FileReference directory;
    if (!volume || !NormalizePath(path, PathBuffer) ||
        Failed(
            CreateByPath(*volume, PathBuffer, NewObject::Directory, 0, attributes, &directory))) {
        return false;
    }
    LetGo(std::move(directory));
    return true;
}

bool Fat_DeleteFile(const char16_t* path) noexcept {
    FatVolume* volume = ChangeableVolume();
    return volume && NormalizePath(path, PathBuffer) &&
           Succeeded(DeleteByPath(*volume, PathBuffer));
}

bool Fat_RenameFile(const char16_t* path, const char16_t* newPath) noexcept {
    FatVolume* volume = ChangeableVolume();
    return volume && NormalizePath(path, PathBuffer) && NormalizePath(newPath, TargetPathBuffer) &&
           Succeeded(RenameByPath(*volume, PathBuffer, LastComponent(TargetPathBuffer)));
}

bool Fat_MoveFile(const char16_t* path, const char16_t* destination) noexcept {
    FatVolume* volume = ChangeableVolume();
    if (!volume || !NormalizePath(path, PathBuffer)) {
        return false;
    }
    if (!destination) {
        return !HasSeparator(PathBuffer) || Succeeded(MoveByPath(*volume, PathBuffer, nullptr));
    }
    if (!NormalizePath(destination, TargetPathBuffer)) {
        return false;
    }
    switch (RelationOf(PathBuffer, TargetPathBuffer)) {
        case PathRelation::Contains:
            return false;
        case PathRelation::DirectlyInside:
            return true;
        case PathRelation::Other:
            break;
    }
    return Succeeded(MoveByPath(*volume, PathBuffer, TargetPathBuffer));
}
