#include "extraction.h"

#include "fat_times.h"
#include "open_file.h"
#include "utf.h"
#include "volume_path.h"

namespace tool {

namespace {

// Thrown to leave a file that is half copied. Not reported: the whole command is interrupted.
struct Interruption {};

std::string ExistsText(const std::string& localPath) {
    return localPath + " exists (--force replaces, --skip keeps)";
}

}  // namespace

void Extraction::Copy(const TreeNode& node, const std::u16string& path,
                      const platform::LocalDirectory& into, const std::string& localName) {
    if (platform::Interrupted() || node.isUnreadable) {
        return;
    }
    try {
        if (localName.empty()) {
            throw Failure{DisplayPath(path), kNameNotConvertible};
        }
        if (!platform::IsSafeLocalName(localName)) {
            throw Failure{DisplayPath(path), "not copied: its name is no safe local file name"};
        }
        if (node.entry.IsDirectory()) {
            CopyDirectory(node, path, into, localName);
        } else {
            CopyFile(node, path, into, localName);
        }
    } catch (const Failure& failure) {
        report_.Fail(failure);
    } catch (const Interruption&) {
        return;
    }
}

void Extraction::CopyChildren(const TreeNode& node, const std::u16string& path,
                              const platform::LocalDirectory& into) {
    for (const TreeNode& child : node.children) {
        const std::u16string& name = child.entry.Name();
        Copy(child, JoinPath(path, name), into, Utf8FromUtf16(name));
    }
}

void Extraction::CopyFile(const TreeNode& node, const std::u16string& path,
                          const platform::LocalDirectory& into, const std::string& localName) {
    if (onExisting_ == OnExisting::Skip && into.Contains(localName)) {
        progress_.Advance(node.entry.sizeBytes);
        report_.Done();
        return;
    }
    const std::string localPath = platform::JoinLocalPath(into.Path(), localName);
    const auto check = [&](int error, const char* step) {
        if (error != 0) {
            throw Failure{DisplayPath(path),
                          step + (" " + localPath) + ": " + platform::ErrorText(error)};
        }
    };
    OpenFile source(image_, path, node.entry);
    platform::LocalFile target;
    const int error = into.CreateFile(
        localName,
        onExisting_ == OnExisting::Replace ? platform::Existing::Replace : platform::Existing::Keep,
        &target);
    if (platform::IsExistsError(error)) {
        throw Failure{DisplayPath(path), ExistsText(localPath)};
    }
    check(error, "cannot create");
    source.ReadToEnd([&](const unsigned char* bytes, std::size_t count) {
        if (platform::Interrupted()) {
            throw Interruption{};
        }
        check(target.Write(bytes, count), "cannot write");
        progress_.Advance(count);
    });
    if (const auto instant = InstantFromVolumeTime(node.entry.modified)) {
        check(target.SetModificationTime(*instant), "cannot set the time of");
    }
    check(target.Commit(), "cannot complete");
    report_.Done();
}

void Extraction::CopyDirectory(const TreeNode& node, const std::u16string& path,
                               const platform::LocalDirectory& into, const std::string& localName) {
    platform::LocalDirectory target;
    if (const int error = target.OpenOrCreate(into, localName); error != 0) {
        throw Failure{DisplayPath(path), "cannot make the directory " +
                                             platform::JoinLocalPath(into.Path(), localName) +
                                             ": " + platform::ErrorText(error)};
    }
    CopyChildren(node, path, target);
    const auto instant = InstantFromVolumeTime(node.entry.modified);
    if (target.IsNew() && instant) {
        if (const int error = target.SetModificationTime(*instant); error != 0) {
            throw Failure{DisplayPath(path), "cannot set the time of " + target.Path() + ": " +
                                                 platform::ErrorText(error)};
        }
    }
}

}  // namespace tool
