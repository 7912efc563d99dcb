// The calls on the volumes of the model, and what they should do.
#pragma once

#include "api/library_state.h"
#include "dir/fat_time.h"
#include "dir/listing_check.h"
#include "model_volumes.h"

namespace fatvol::test {

using Steps = std::vector<uint64_t>;

inline Steps MakeSteps(uint64_t sequence, size_t count) {
    Rng rng(sequence);
    Steps steps(count);
    std::generate(steps.begin(), steps.end(), rng);
    return steps;
}

struct Model : ModelVolumes {
    using ModelVolumes::ModelVolumes;

    // ---- Opening

    bool Open(const NodeRef& node) {
        return Hold(files, node, true, [&] { return Fat_OpenFile(Spelled(node->path).c_str()); });
    }
    void OpenMany() {
        const uint64_t count = Below(rng, Chance(3) ? 170 : 20);
        for (uint64_t left = side->nodes.empty() ? 0 : count; left > 0; --left) {
            Open(Pick(true));
        }
    }
    void CloseMany() {
        for (uint64_t left = Below(rng, files.size() + 1); left > 0; --left) {
            Close(files, Below(rng, files.size()));
        }
    }

    // ---- Creating and deleting

    bool Create(const std::u16string& path, bool isDirectory, uint32_t size) {
        Say("create " + std::to_string(size), path);
        Touch(side, path, true);
        const auto attributes = static_cast<uint8_t>(Chance(8) ? Below(rng, 256) : 0x21);
        const bool expected = IsCreatable(path) && (attributes & 0x08) == 0 &&
                              (isDirectory || files.size() < fileHandles);
        int handle = -1;
        const auto create = [&] {
            handle = isDirectory ? -1 : Fat_CreateFile(path.c_str(), size, attributes);
            return isDirectory ? Fat_CreateDir(path.c_str(), attributes) : handle >= 0;
        };
        const bool done = Try(expected, create, IsRoomShort(path, size));
        if (done) {
            AddMissingParents(path, true);
            Add(path, static_cast<uint8_t>((attributes & ~0x10U) | (isDirectory ? 0x10U : 0U)));
        } else if (expected) {
            halfMade = path;
            FindHalfMade();
        }
        if (handle >= 0) {
            files.push_back({side, Find(path), handle});
            ++files.back().node->holders;
            SetSize(files.back(), size);
            if (!Chance(8)) {
                Close(files, files.size() - 1);
            }
        }
        return done;
    }
    // What a creation made on its way, all of it unless it failed. False when that cannot be told.
    bool AddMissingParents(const std::u16string& path, bool isCertain) {
        for (size_t at = path.find(u'\\'); at != path.npos; at = path.find(u'\\', at + 1)) {
            const std::u16string above = path.substr(0, at);
            if (Find(above)) {
                continue;
            }
            if (!isCertain && files.size() == fileHandles) {
                Close(files, 0);
            }
            if (isCertain || Try(
                                 true, [&] { return CanOpen(above); }, true)) {
                Add(above, 0x10);
            } else if (hasFailed) {
                return false;
            }
        }
        return true;
    }
    bool FindHalfMade() {
        halfMade = AddMissingParents(halfMade, false) ? u"" : halfMade;
        return halfMade.empty();
    }
    void CreateFiles() {
        const uint32_t clusterBytes = side->Info().bytesPerCluster;
        Create(NewPath(), false, Chance(3) ? RandomSize(rng, clusterBytes, 300000) : 0);
        // Now and then more, with long names, until there is no room.
        const std::u16string directory = PickParent(false)->path;
        bool isRoom = Chance(6) && directory.size() < 50 && halfMade.empty();
        for (uint64_t left = 40; left > 0 && isRoom; --left) {
            const std::u16string name(100 + Below(rng, 100),
                                      static_cast<char16_t>(u'\u4E00' + left));
            isRoom = Create(JoinPath(directory, name), false, 0);
        }
    }
    void CreateDir() { Create(NewPath(), true, 0); }
    void DeleteNode(const NodeRef& node) {
        Say("delete", node->path);
        Touch(side, node->path);
        const bool expected = node->holders == 0 && Subtree(node).size() == 1;
        if (Try(expected, [&] { return Fat_DeleteFile(Spelled(node->path).c_str()); })) {
            side->nodes.erase(Fold(node->path));
            ForgetShown(node->path);
        }
    }
    void DeleteTree(const NodeRef& node) {
        const NodeRef top = Find(node->path.substr(0, node->path.find(u'\\')));
        const std::vector<NodeRef> nodes = Subtree(top);
        std::for_each(nodes.rbegin(), nodes.rend(), [&](const NodeRef& n) { DeleteNode(n); });
    }
    void Delete(const NodeRef& node) { Chance(4) ? DeleteTree(node) : DeleteNode(node); }

    // ---- Renaming and moving

    // The new path and those of what is held below it must keep to the limit; where others do not,
    // the model could not open them afterwards.
    template <class Call>
    void Carry(const NodeRef& node, const std::u16string& to, bool expected, Call call) {
        bool fits = true, allFit = true;
        for (const NodeRef& each : Subtree(node)) {
            const size_t units = to.size() + each->path.size() - node->path.size();
            allFit = allFit && units <= maxPathUnits;
            fits = fits && (units <= maxPathUnits || (each != node && each->holders == 0));
        }
        if (fits != allFit) {
            return;
        }
        Say("carry " + Printable(node->path) + " to", to);
        Touch(side, node->path);
        Touch(side, to, true);
        if (Try(expected && fits && !Find(to), call, IsRoomShort(to, 0))) {
            Rebase(node, to);
        }
    }
    void Rename(const NodeRef& node) {
        const std::u16string directory = Parent(node->path);
        std::u16string name = NewName(directory);
        if (Chance(4)) {  // the longest path below comes to the limit, or just beyond
            size_t longest = 0;
            for (const NodeRef& each : Subtree(node)) {
                longest = std::max(longest, each->path.size());
            }
            const size_t limit = maxPathUnits + Below(rng, 2) + Name(node->path).size();
            name.assign(std::min<size_t>(limit - std::min(longest, limit - 1), 255), u'r');
        }
        const std::u16string ignored = name.size() < 250 ? u"Other" : u"";
        Carry(node, JoinPath(directory, name), true, [&] {
            const bool done =
                Fat_RenameFile(Spelled(node->path).c_str(), JoinPath(ignored, name).c_str());
            node->times = done ? EntryTimes() : node->times;
            return done;
        });
    }
    void Move(const NodeRef& node) {
        const NodeRef target = PickParent(Chance(10));
        const auto move = [&] {
            return Fat_MoveFile(Spelled(node->path).c_str(),
                                target == side->root ? nullptr : Spelled(target->path).c_str());
        };
        const std::vector<NodeRef> inside = Subtree(node);
        const bool isOutside = std::find(inside.begin(), inside.end(), target) == inside.end();
        if (isOutside && Find(Parent(node->path)) == target) {
            Try(true, move);  // it is there
            return;
        }
        // Handles on the root directory keep nothing from moving there.
        const bool isFree = node->holders == 0 && (target == side->root || target->holders == 0);
        Carry(node, JoinPath(target->path, Name(node->path)),
              isOutside && isFree && target->IsDirectory(), move);
    }

    // ---- Contents and entries of files

    // What a grown range holds is free, and so is that of a failed write, but it must not change by
    // itself. False when it cannot be read.
    bool Learn(const Held& file) {
        Node& node = *file.node;
        const size_t from = node.unknownFrom, count = node.unknownEnd - from;
        const auto read = [&] {
            const auto bytes = ReadAt(file.handle, from, count);
            std::copy_n(bytes ? bytes->begin() : node.content.begin(), bytes ? bytes->size() : 0,
                        node.content.begin() + static_cast<long>(from));
            return bytes && bytes->size() == count;
        };
        node.unknownEnd = count == 0 || Try(true, read) ? from : node.unknownEnd;
        return node.unknownEnd == from;
    }
    void SetSize(const Held& file, uint64_t size) {
        Node& node = *file.node;
        const size_t old = node.content.size();
        node.content.resize(size);
        if (size > old) {
            node.unknownFrom = old;
            node.unknownEnd = size;
            Learn(file);
        }
    }
    void Transfer(const Held& file) {
        Node& node = *file.node;
        if (node.IsDirectory()) {
            Bytes dots;
            const bool isRead = Try(true, [&] {
                dots = ReadAt(file.handle, 0, 64).value_or(Bytes());
                return !dots.empty();
            });
            EXPECT_TRUE(!isRead || (dots[0] == '.' && dots[32] == '.' && dots[33] == '.'));
            return;
        }
        if (!Learn(file)) {
            return;
        }
        const bool isEx = Chance(2), isWrite = Chance(2);
        const size_t size = node.content.size();
        const size_t offset = isEx ? Below(rng, size + 2) : node.position;
        const auto position = static_cast<long long>(offset);
        const auto count = static_cast<unsigned int>(Below(rng, Chance(2) ? 100 : size + 9));
        const size_t expected = std::min<size_t>(count, size - std::min(offset, size));
        uint8_t* const place = node.content.data() + std::min(offset, size);
        Bytes bytes = RandomBytes(rng, count + 2);
        uint8_t* const buffer = &bytes[Below(rng, 2)];  // at even and odd addresses
        unsigned int done = 77;
        const auto transfer = [&] {
            return isWrite ? isEx ? Fat_WriteFileEx(file.handle, position, count, buffer, &done)
                                  : Fat_WriteFile(file.handle, count, buffer, &done)
                   : isEx ? Fat_ReadFileEx(file.handle, position, count, buffer, &done)
                           : Fat_ReadFile(file.handle, count, buffer, &done);
        };
        if (isWrite) {
            Touch(file.side, node.path);
        }
        if (!Try(!isEx || offset < size, transfer) && (hasFailed || damaged)) {
            node.unknownFrom = offset;
            node.unknownEnd = offset + (isWrite ? expected : 0);
            EXPECT_TRUE(Fat_GetFileOffset(file.handle, &done) && done == node.position);
            return;
        }
        EXPECT_EQ(done, expected);
        if (isWrite) {
            std::copy_n(buffer, expected, place);
        }
        EXPECT_TRUE(std::equal(place, place + expected, buffer));
        node.position += isEx ? 0 : static_cast<uint32_t>(expected);
        EXPECT_TRUE(Fat_GetFileOffset(file.handle, &done) && done == node.position);
    }
    void Seek(const Held& file) {
        Node& node = *file.node;
        const auto size = static_cast<uint32_t>(node.content.size());
        const auto offset = static_cast<uint32_t>(Below(rng, size + 9));
        const auto origin = static_cast<unsigned int>(Below(rng, 4));
        const uint32_t targets[] = {offset, node.position + offset,
                                    offset <= size ? size - offset : 0, node.position};
        EXPECT_TRUE(Fat_SetFileOffset(file.handle, offset, origin));
        node.position = std::min(targets[origin], size);
        unsigned int actualSize = 77, position = 77;
        EXPECT_TRUE(Fat_GetFileSize(file.handle, &actualSize) && actualSize == size);
        EXPECT_TRUE(Fat_GetFileOffset(file.handle, &position) && position == node.position);
    }
    void SetAttributes(const Held& file) {
        Node& node = *file.node;
        FatFileInfo info{};
        if (!Try(true, [&] { return Fat_GetFileAttribute(file.handle, &info); })) {
            return;
        }
        EXPECT_TRUE(info.attributes == node.attributes &&
                    Fat_IsDir(file.handle) == node.IsDirectory());
        EXPECT_EQ(Printable(Fold(NameOf(info))), Printable(Fold(Name(node.path))));
        EntryTimes times = node.times;
        times.writeDate = static_cast<uint16_t>(Below(rng, 128) << 9 | 0x2F);
        times.writeTime = static_cast<uint16_t>(Below(rng, 24) << 11 | 0x6D);
        times.accessDate = times.writeDate;
        int64_t written = 0;
        EXPECT_TRUE(FatTimeToSystemTime(times.writeDate, times.writeTime, &written));
        info.lastWriteTimeLow = info.lastAccessTimeLow = static_cast<unsigned int>(written);
        info.lastWriteTimeHigh = info.lastAccessTimeHigh = static_cast<unsigned int>(written >> 32);
        info.attributes = static_cast<unsigned int>(Below(rng, 256));
        Touch(file.side, node.path);
        if (Try(true, [&] { return Fat_SetFileAttribute(file.handle, &info); })) {
            node.times = times;
            node.attributes = static_cast<uint8_t>((info.attributes & ~0x18U) |
                                                   (node.IsDirectory() ? 0x10U : 0U));
        }
    }
    void ResizeTo(const Held& file, uint64_t size) {
        const FatVolumeInfo info = file.side->Info();
        const uint64_t c = info.bytesPerCluster, old = file.node->content.size();
        const bool expected = (size + c - 1) / c <= (old + c - 1) / c + info.freeClusters;
        Say("resize from " + std::to_string(old) + " to " + std::to_string(size), u"");
        if (!Learn(file)) {
            return;
        }
        Touch(file.side, file.node->path);
        const auto resize = [&] {
            return Fat_SetFileSize(file.handle, static_cast<unsigned int>(size));
        };
        if (Try(expected, resize)) {
            SetSize(file, size);
        }
    }
    void Resize(const Held& file) {
        const FatVolumeInfo info = file.side->Info();
        const uint64_t c = info.bytesPerCluster;
        const uint64_t allRoom = ((file.node->content.size() + c - 1) / c + info.freeClusters) * c;
        if (file.node->IsDirectory()) {
            // Any size that keeps its entries and that there is room for.
            Touch(file.side, file.node->path);
            const auto size = static_cast<unsigned int>(Below(rng, Chance(4) ? 600000 : 40000));
            Try(
                true, [&] { return Fat_SetFileSize(file.handle, size); }, true);
            EXPECT_FALSE(Fat_SetFileSize(file.handle, 0) ||
                         Fat_SetFileSize(file.handle, (2U << 20) + 1));
        } else if (Chance(4) && allRoom < 3000000) {  // to the last free cluster
            ResizeTo(file, allRoom);
            ResizeTo(file, allRoom + 1);
            ResizeTo(file, allRoom - std::min(allRoom, Below(rng, 30) * c));
        } else {
            ResizeTo(file, RandomSize(rng, info.bytesPerCluster, 700000));
        }
    }

    // ---- Enumerating

    static void See(Held& find, const FatFileInfo& info) {
        const std::u16string name = Fold(NameOf(info));
        const auto shown = find.shown.find(name);
        EXPECT_TRUE(shown == find.shown.end() || ++shown->second == 1) << Printable(name);
        EXPECT_TRUE(name == u"." || name == u".." || name == hugeName ||
                    find.side->nodes.contains(JoinPath(Fold(find.node->path), name)));
    }
    void StartFinds() {
        for (uint64_t left = Chance(20) ? findHandles : 2; left > 0; --left) {
            const NodeRef directory = PickParent(false);
            const auto names = ChildNames(*side, directory);
            const bool isRoot = directory == side->root;
            FatFileInfo info{};
            const auto find = [&] {
                return isRoot ? Fat_FindFirstRootFile(&info)
                              : Fat_FindFirstFile(directory->path.c_str(), &info);
            };
            if (Hold(finds, directory, !isRoot || !names.empty(), find)) {
                finds.back().shown = names;
                See(finds.back(), info);
            }
        }
    }
    void NextFinds() {
        if (finds.empty()) {
            return;
        }
        const size_t index = Below(rng, finds.size());
        Held& find = finds[index];
        FatFileInfo info{};
        for (uint64_t left = 1 + Below(rng, 12); left > 0; --left) {
            if (Try(
                    true, [&] { return Fat_FindNextFile(find.handle, &info); }, true)) {
                See(find, info);
                continue;
            }
            if (hasFailed) {
                return;
            }
            for (const auto& [name, times] : find.shown) {
                EXPECT_EQ(times, 1) << Printable(name);
            }
            if (Chance(2)) {
                Close(finds, index);
                return;
            }
            find.shown = ChildNames(*find.side, find.node);  // the next call starts over
        }
    }

    // ---- Steps

    void FlushOne() { Flush(); }
    void SwitchOrRemount() { Chance(3) ? Remount() : Switch(); }
    // All choices in a step follow from its number: steps can be left out.
    void Do(uint64_t step) {
        static constexpr size_t manyNodes = 250;
        static constexpr void (Model::*actions[])() = {
            &Model::CreateFiles, &Model::CreateDir,       &Model::OpenMany,
            &Model::CloseMany,   &Model::StartFinds,      &Model::NextFinds,
            &Model::FlushOne,    &Model::SwitchOrRemount, &Model::Sweep};
        static constexpr void (Model::*nodeActions[])(const NodeRef&) = {
            &Model::Delete, &Model::Rename, &Model::Move};
        static constexpr void (Model::*fileActions[])(const Held&) = {
            &Model::Transfer, &Model::Seek, &Model::SetAttributes, &Model::Resize};
        if (!IsReady()) {
            Start();
        }
        if (!IsReady() || !FindHalfMade()) {
            return;
        }
        rng = Rng(step);
        const uint64_t kind = Below(rng, 10);
        const NodeRef node = Pick(true);
        if (node && side->nodes.size() > manyNodes) {
            DeleteTree(node);
        } else if (kind < 6) {
            (this->*actions[Below(rng, std::size(actions))])();
        } else if (node && kind < 8) {
            (this->*nodeActions[Below(rng, std::size(nodeActions))])(node);
        } else if (node) {
            // A handle that is held already, on either volume, or a new one.
            const bool isNew = files.empty() || (files.size() < fileHandles && Chance(2));
            if (!isNew || Open(node)) {
                const Held& file = files[Below(rng, files.size())];
                const size_t action = Below(rng, std::size(fileActions));
                Say("handle, action " + std::to_string(action), file.node->path);
                (this->*fileActions[action])(file);
            }
        }
        EXPECT_TRUE(IsLibrarySound());
        for (const Side& each : sides) {
            EXPECT_TRUE(!each.volume || AreListingsInStep(*each.volume));
        }
    }

    // Reads what is not known of contents.
    void LearnAll() {
        for (const auto& [path, node] : side->nodes) {
            if (node->unknownEnd != node->unknownFrom) {
                if (files.size() == fileHandles) {
                    Close(files, 0);
                }
                EXPECT_TRUE(Open(node) && Learn(files.back()));
                Close(files, files.size() - 1);
            }
        }
    }
    // Nothing fails any more: the library goes on working, with what was open as well, and what was
    // reported as done is there.
    void Recover() {
        failurePoint.failAt = 0;
        Start();
        for (int i = 0; i < 2; ++i) {
            LearnAll();
            Switch();
        }
        for (uint64_t step = 0; step < 10; ++step) {
            Do(step);
        }
        CloseAll(nullptr);
        for (int i = 0; i < 2; ++i) {
            Create(u"Afterwards", false, 9000);
            // The first may tell of failures before.
            EXPECT_TRUE(Flush() || Flush() || damaged);
            Remount();
            Switch();
        }
    }

private:
    std::u16string halfMade;  // a path that is not there, and of what is above it is not known
};

}  // namespace fatvol::test
