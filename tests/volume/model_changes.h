// What the model creates, deletes, renames and moves, and what that should do.
#pragma once

#include "model_volumes.h"

namespace fatvol::test {

struct ModelChanges : ModelVolumes {
    using ModelVolumes::ModelVolumes;

    bool Create(const std::u16string& path, bool isDirectory, uint32_t size, uint8_t attributes) {
        Say("  " + Printable(path) + ", " + std::to_string(size) + " bytes");
        const bool expected = IsCreatable(path) && (attributes & 0x08) == 0 &&
                              (isDirectory || held.size() < fileHandles);
        const bool isTight = IsRoomShort(path, size);
        const int handle = isDirectory ? -1 : Fat_CreateFile(path.c_str(), size, attributes);
        const bool done = isDirectory ? Fat_CreateDir(path.c_str(), attributes) : handle >= 0;
        EXPECT_TRUE(done == expected || (expected && isTight)) << Printable(path);
        if (expected) {
            AddMissingParents(path, done);
        }
        if (done) {
            Add(path, isDirectory, attributes);
        }
        if (handle >= 0) {
            held.push_back({side, Find(path), handle});
            ++held.back().node->holders;
            ReadGrown(held.back(), size);
            if (!Chance(8)) {
                Close(held.size() - 1);
            }
        }
        return done;
    }
    // What a grown range holds is free, but it must not change by itself.
    static void ReadGrown(const HeldFile& file, uint64_t size) {
        Bytes& content = file.node->content;
        const size_t old = content.size();
        const Bytes grown =
            size > old ? ReadAt(file.handle, old, size - old).value_or(Bytes()) : Bytes();
        content.insert(content.end(), grown.begin(), grown.end());
        content.resize(std::min<uint64_t>(size, content.size()));
        EXPECT_EQ(content.size(), size);
    }
    uint8_t NewAttributes() { return static_cast<uint8_t>(Chance(8) ? Below(rng, 256) : 0x21); }
    void CreateFile() {
        const uint32_t clusterBytes = side->mounted->Info().bytesPerCluster;
        Create(NewPath(), false, Chance(3) ? RandomSize(rng, clusterBytes, 300000) : 0,
               NewAttributes());
    }
    void CreateDir() { Create(Chance(4) ? DeepPath() : NewPath(), true, 0, NewAttributes()); }
    // With long names, until there is no room; the fixed root directory above all.
    void FillDirectory() {
        const NodeRef directory = Chance(3) ? Pick(true, false) : nullptr;
        const std::u16string path = directory ? directory->path : u"";
        for (uint64_t left = path.size() > 50 ? 0 : 40; left > 0; --left) {
            const std::u16string name = std::u16string(100 + Below(rng, 100), u'l');
            if (!Create(JoinPath(path, name + char16_t(u'\u4E00' + left)), false, 0, 0x20)) {
                return;
            }
        }
    }
    void DeleteNode(const NodeRef& node) {
        Say("  " + Printable(node->path));
        const bool expected = node->holders == 0 && NodesBelow(node->path).empty();
        EXPECT_EQ(Fat_DeleteFile(Spelled(node->path).c_str()), expected) << Printable(node->path);
        if (expected) {
            side->nodes.erase(Fold(node->path));
            Unsettle(node->path);
        }
    }
    void Delete() {
        if (const NodeRef node = Pick(true, true)) {
            DeleteNode(node);
        }
        EXPECT_FALSE(Fat_DeleteFile(u"No such thing"));
    }
    void DeleteTree() {
        const NodeRef node = Pick(true, false);
        if (node) {
            const std::u16string top = node->path.substr(0, node->path.find(u'\\'));
            std::vector<NodeRef> nodes = NodesBelow(top);
            nodes.insert(nodes.begin(), Find(top));
            std::for_each(nodes.rbegin(), nodes.rend(), [&](const NodeRef& n) { DeleteNode(n); });
        }
    }
    static int FindFirst(const NodeRef& directory, FatFileInfo* info) {
        return directory ? Fat_FindFirstFile(directory->path.c_str(), info)
                         : Fat_FindFirstRootFile(info);
    }
    void DeleteWhileListing() {
        const NodeRef directory = Pick(true, false);
        if (!directory || finds.size() == findHandles) {
            return;
        }
        Say("  in " + Printable(directory->path));
        FatFileInfo info{};
        const int handle = FindFirst(directory, &info);
        for (bool isFound = handle >= 0; isFound; isFound = Fat_FindNextFile(handle, &info)) {
            const NodeRef node = Find(JoinPath(directory->path, NameOf(info)));
            if (node) {
                DeleteNode(node);
            }
            EXPECT_TRUE(node || NameOf(info) == u"." || NameOf(info) == u"..");
        }
        EXPECT_TRUE(Fat_CloseFindHandle(handle));
        for (const std::u16string& name : ChildNames(*side, directory)) {
            const NodeRef node = Find(JoinPath(directory->path, name));
            EXPECT_TRUE(node->holders > 0 || !NodesBelow(node->path).empty()) << Printable(name);
        }
    }

    // ---- Actions: renaming and moving

    // Whether all open paths at or below a new path keep to the limit; nothing when that hangs on
    // what the cache holds.
    std::optional<bool> Fits(const Node& node, const std::u16string& to) const {
        bool fits = to.size() <= maxPathUnits, allFit = fits;
        for (const NodeRef& below : NodesBelow(node.path)) {
            if (to.size() + below->path.size() - node.path.size() > maxPathUnits) {
                allFit = false;
                fits = fits && below->holders == 0;
            }
        }
        return fits == allFit ? std::optional(fits) : std::nullopt;
    }
    void Rename() {
        const NodeRef node = Pick(true, true);
        if (!node) {
            return;
        }
        const std::u16string directory = Parent(node->path);
        const std::u16string name = Chance(8) ? Fold(Name(node->path)) : NewName(directory);
        const std::u16string to = JoinPath(directory, name);
        const std::optional<bool> fits = Fits(*node, to);
        if (!fits) {
            return;
        }
        Say("  " + Printable(node->path) + " to " + Printable(name));
        const bool expected = *fits && !Find(to), isTight = IsRoomShort(to, 0);
        const bool done =
            Fat_RenameFile(Spelled(node->path).c_str(),
                           JoinPath(name.size() < 250 ? u"Other" : u"", name).c_str());
        EXPECT_TRUE(done == expected || (expected && isTight)) << Printable(to);
        if (done) {
            node->times = {};
            Rebase(node, to);
        }
    }
    void Move() {
        const NodeRef node = Pick(true, true);
        const NodeRef target = Chance(4) ? nullptr : Pick(true, Chance(10));
        if (!node) {
            return;
        }
        const std::u16string directory = target ? target->path : u"";
        const std::u16string to = JoinPath(directory, Name(node->path));
        const bool isInside = target == node || IsBelow(Fold(directory), node->path);
        const bool stays = Find(Parent(node->path)) == target;
        const std::optional<bool> fits = isInside || stays ? true : Fits(*node, to);
        if (!fits) {
            return;
        }
        Say("  " + Printable(node->path) + " to " + Printable(directory));
        const bool isFree = *fits && !Find(to) && node->holders == 0 &&
                            (!target || (target->isDirectory && target->holders == 0));
        const bool expected = !isInside && (stays || isFree), isTight = IsRoomShort(to, 0);
        const bool done = Fat_MoveFile(Spelled(node->path).c_str(),
                                       target ? Spelled(directory).c_str() : nullptr);
        EXPECT_TRUE(done == expected || (expected && isTight)) << Printable(to);
        if (done && !stays) {
            Rebase(node, to);
        }
    }
};

}  // namespace fatvol::test
