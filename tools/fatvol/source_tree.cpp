#include "source_tree.h"

#include <memory>
#include <utility>

#include "directory_tree.h"
#include "platform.h"
#include "utf.h"
#include "volume_path.h"

namespace tool {

namespace {

constexpr std::size_t kPieceBytes = 1U << 20;

void Check(const std::string& path, int error) {
    if (error != 0) {
        throw Failure{path, platform::ErrorText(error)};
    }
}

std::uint64_t HandOver(platform::LocalInput& input, const std::string& path, std::uint64_t maxBytes,
                       const OpenFile::Consume& consume) {
    const auto buffer = std::make_unique_for_overwrite<unsigned char[]>(kPieceBytes);
    std::uint64_t doneBytes = 0;
    std::size_t count = kPieceBytes;
    while (count == kPieceBytes && doneBytes < maxBytes) {
        const std::size_t wanted = std::min<std::uint64_t>(kPieceBytes, maxBytes - doneBytes);
        Check(path, input.Read(buffer.get(), wanted, &count));
        consume(buffer.get(), count);
        doneBytes += count;
    }
    return doneBytes;
}

void ReadLocalFile(const std::string& path, std::uint64_t sizeBytes,
                   const OpenFile::Consume& consume) {
    platform::LocalInput input;
    Check(path, input.Open(path));
    if (HandOver(input, path, sizeBytes, consume) < sizeBytes) {
        throw Failure{path, "became shorter while it was read"};
    }
}

SourceNode StandardInput() {
    SourceNode node;
    node.origin = "standard input";
    node.isSizeKnown = false;
    node.attributes = kArchive;
    node.modified = CurrentVolumeTime();
    node.read = [](const OpenFile::Consume& consume) {
        platform::LocalInput input;
        input.OpenStandardInput();
        HandOver(input, "standard input", UINT64_MAX, consume);
    };
    return node;
}

// The last component; empty where a path names a directory by its place alone.
std::u16string NameOfLocal(const std::string& path) {
    const platform::LocalPlace place = platform::SplitLocalPath(path);
    if (!platform::IsSafeLocalName(place.name)) {
        return {};
    }
    const auto converted = Utf16FromUtf8(place.name);
    if (!converted) {
        throw Failure{path, "the name is no valid UTF-8"};
    }
    return *converted;
}

SourceNode LoadLocalNode(Report& report, const std::string& path, platform::Links links);

void LoadLocalChildren(Report& report, SourceNode& node) {
    std::vector<std::string> names;
    Check(node.origin, platform::ListLocalDirectory(node.origin, &names));
    for (const std::string& name : names) {
        if (platform::Interrupted()) {
            return;
        }
        try {
            const std::string path = platform::JoinLocalPath(node.origin, name);
            node.children.push_back(LoadLocalNode(report, path, platform::Links::Keep));
        } catch (const Failure& failure) {
            report.Fail(failure);
        }
    }
}

SourceNode LoadLocalNode(Report& report, const std::string& path, platform::Links links) {
    using platform::LocalKind;
    platform::LocalStatus status;
    Check(path, platform::ReadLocalStatus(path, links, &status));
    SourceNode node;
    node.origin = path;
    node.name = NameOfLocal(path);
    node.modified = VolumeTimeFromInstant(status.modified);
    if (status.kind == LocalKind::Directory) {
        node.isDirectory = true;
        LoadLocalChildren(report, node);
        return node;
    }
    if (status.kind != LocalKind::File) {
        throw Failure{path, status.kind == LocalKind::SymbolicLink ? "not copied: a symbolic link"
                                                                   : "not copied: no regular file"};
    }
    node.sizeBytes = status.sizeBytes;
    node.attributes = kArchive;
    node.read = [path, size = status.sizeBytes](const OpenFile::Consume& consume) {
        ReadLocalFile(path, size, consume);
    };
    return node;
}

SourceNode NodeFromTree(MountedImage& image, const TreeNode& tree, const std::u16string& path) {
    SourceNode node;
    node.origin = DisplayPath(path);
    node.name = tree.entry.Name();
    node.isDirectory = tree.entry.IsDirectory();
    node.sizeBytes = node.isDirectory ? 0 : tree.entry.sizeBytes;
    node.attributes = tree.entry.attributes & (kReadOnly | kHidden | kSystem | kArchive);
    node.modified = tree.entry.modified;
    node.read = [&image, path, entry = tree.entry](const OpenFile::Consume& consume) {
        OpenFile(image, path, entry).ReadToEnd(consume);
    };
    for (const TreeNode& child : tree.children) {
        if (!child.isUnreadable) {
            node.children.push_back(NodeFromTree(image, child, JoinPath(path, child.entry.Name())));
        }
    }
    return node;
}

}  // namespace

SourceNode LoadLocalSource(Report& report, const std::string& path) {
    return path == "-" ? StandardInput() : LoadLocalNode(report, path, platform::Links::Follow);
}

SourceNode LoadVolumeSource(MountedImage& image, Report& report, const std::u16string& path) {
    return NodeFromTree(image, LoadTree(image, report, path), path);
}

}  // namespace tool
