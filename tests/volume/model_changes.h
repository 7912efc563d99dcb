// The calls on the volumes of the model, and what they should do.
#pragma once

#include "dir/fat_time.h"
#include "dir/listing_check.h"
#include "dir/short_name.h"
#include "model_tree.h"
#include "support/judges.h"

namespace fatvol::test {

// The volumes themselves, mounted, and the actions on them.
struct Model : ModelTree {
    Model(size_t geometry, uint64_t sequence) : ModelTree(geometry, sequence) {
        for (Side& each : sides) {
            SpoilClusters(each.builder);
            side = &each;
            Mount();
        }
    }

    std::string said;  // a line for each call that matters

    void Say(const std::string& call, const std::u16string& path) {
        said += call + " " + Printable(path) + "\n";
    }

    // ---- Volumes

    // Marks clusters bad, now and then most of them, for free space that is scarce and scattered.
    void SpoilClusters(ImageBuilder& builder) {
        const uint32_t count = builder.geometry.clusterCount;
        const bool isLarge = builder.geometry.clusterBytes > 65536;
        const uint64_t kept = 10 + Below(rng, isLarge ? 50 : Chance(2) ? 60 : count);
        const bool isWhole = !isLarge && Chance(2);
        for (uint32_t cluster = 3; cluster < count + 2 && !isWhole; ++cluster) {
            if (Below(rng, count) >= kept) {
                builder.SetFatEntry(cluster, builder.geometry.badMark);
            }
        }
    }
    // The tails of aliases start over, so that they meet those of earlier mounts.
    void Mount() {
        ResetShortNameTailsForTests();
        side->mounted = std::make_unique<Mounted>(side->builder.disk);
    }
    void Switch() {
        Say("switch", u"");
        side = side == &sides[0] ? &sides[1] : &sides[0];
        SetCurrentFileSystem(side->mounted->volume);
    }
    void Remount() {
        Say("remount", u"");
        Side& done = *side;
        ASSERT_TRUE(done.mounted->Unmount());
        Switch();
        CloseAll(&done);
        side = &done;
        const uint64_t freeClusters = CheckDisk();
        Mount();
        EXPECT_EQ(done.mounted->Info().freeClusters, freeClusters);
    }
    uint64_t CheckDisk() {
        const MemoryDisk& disk = side->builder.disk;
        const ImageReport report = CheckImage(disk);
        // A move carries its run with its alias unchanged, which may double one.
        EXPECT_TRUE(report.faults.empty() && report.lostClusters == 0 && !report.areFatsDifferent &&
                    !report.isFreeCountWrong)
            << report.Text();
        const Tree expected = Expected(), tree = Folded(ReadTree(disk));
        EXPECT_EQ(Difference(expected, tree), "");
        EXPECT_TRUE(expected == tree) << "times or unused bytes of an entry";
        if (Chance(8)) {
            ExpectJudgedSound(disk);
        }
        return report.freeClusters;
    }
    void Flush() {
        Say("flush", u"");
        ASSERT_TRUE(Fat_FlushVolume(side->mounted->volume));
        CheckDisk();
    }
    void SwitchOrRemount() { Chance(3) ? Remount() : Switch(); }

    // ---- Handles

    void Hold(std::vector<Held>& list, const NodeRef& node, int handle) {
        EXPECT_EQ(handle >= 0, list.size() < (&list == &files ? fileHandles : findHandles))
            << Printable(node->path);
        if (handle >= 0) {
            list.push_back({side, node, handle});
            ++node->holders;
        }
    }
    void Close(std::vector<Held>& list, size_t index) {
        const Held held = list[index];
        list.erase(list.begin() + static_cast<long>(index));
        held.node->position = 0;
        --held.node->holders;
        EXPECT_TRUE(&list == &files ? Fat_CloseFile(held.handle)
                                    : Fat_CloseFindHandle(held.handle));
    }
    // Of a volume that is gone, whose handles do nothing any more.
    void CloseAll(const Side* gone) {
        unsigned int size = 0;
        FatFileInfo info{};
        for (std::vector<Held>* const list : {&files, &finds}) {
            for (size_t i = list->size(); i-- > 0;) {
                const Held& held = (*list)[i];
                if (held.side == gone) {
                    EXPECT_FALSE(list == &files ? Fat_GetFileSize(held.handle, &size)
                                                : Fat_FindNextFile(held.handle, &info));
                    Close(*list, i);
                }
            }
        }
    }
    void Open(const NodeRef& node) { Hold(files, node, Fat_OpenFile(Spelled(node->path).c_str())); }
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
        const auto attributes = static_cast<uint8_t>(Chance(8) ? Below(rng, 256) : 0x21);
        const bool expected = IsCreatable(path) && (attributes & 0x08) == 0 &&
                              (isDirectory || files.size() < fileHandles);
        const bool isTight = IsRoomShort(path, size);
        const int handle = isDirectory ? -1 : Fat_CreateFile(path.c_str(), size, attributes);
        const bool done = isDirectory ? Fat_CreateDir(path.c_str(), attributes) : handle >= 0;
        EXPECT_TRUE(done == expected || (expected && isTight)) << Printable(path);
        if (expected) {
            AddMissingParents(path, done);
        }
        if (done) {
            Add(path, static_cast<uint8_t>((attributes & ~0x10U) | (isDirectory ? 0x10U : 0U)));
        }
        if (handle >= 0) {
            Hold(files, Find(path), handle);
            ReadGrown(files.back(), size);
            if (!Chance(8)) {
                Close(files, files.size() - 1);
            }
        }
        return done;
    }
    // What a creation made on its way, all of it unless it failed.
    void AddMissingParents(const std::u16string& path, bool isCertain) {
        for (size_t at = path.find(u'\\'); at != path.npos; at = path.find(u'\\', at + 1)) {
            const std::u16string above = path.substr(0, at);
            if (!isCertain && files.size() == fileHandles) {
                Close(files, 0);
            }
            if (!Find(above) && (isCertain || CanOpen(above))) {
                Add(above, 0x10);
            }
        }
    }
    void CreateFiles() {
        const uint32_t clusterBytes = side->mounted->Info().bytesPerCluster;
        Create(NewPath(), false, Chance(3) ? RandomSize(rng, clusterBytes, 300000) : 0);
        // Now and then more, with long names, until there is no room.
        const std::u16string directory = PickParent(false)->path;
        bool isRoom = Chance(6) && directory.size() < 50;
        for (uint64_t left = 40; left > 0 && isRoom; --left) {
            const std::u16string name(100 + Below(rng, 100),
                                      static_cast<char16_t>(u'\u4E00' + left));
            isRoom = Create(JoinPath(directory, name), false, 0);
        }
    }
    void CreateDir() { Create(NewPath(), true, 0); }
    void DeleteNode(const NodeRef& node) {
        Say("delete", node->path);
        const bool expected = node->holders == 0 && Subtree(node).size() == 1;
        EXPECT_EQ(Fat_DeleteFile(Spelled(node->path).c_str()), expected) << Printable(node->path);
        if (expected) {
            side->nodes.erase(Fold(node->path));
            Unsettle(node->path);
        }
    }
    void DeleteTree(const NodeRef& node) {
        const NodeRef top = Find(node->path.substr(0, node->path.find(u'\\')));
        const std::vector<NodeRef> nodes = Subtree(top);
        std::for_each(nodes.rbegin(), nodes.rend(), [&](const NodeRef& n) { DeleteNode(n); });
    }
    void Delete(const NodeRef& node) { Chance(4) ? DeleteTree(node) : DeleteNode(node); }

    // ---- Renaming and moving

    // All open paths at or below the new one must keep to the limit; what is not open need not, as
    // far as the cache does not hold it either.
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
        expected = expected && fits && !Find(to);
        const bool isTight = IsRoomShort(to, 0), done = call();
        EXPECT_TRUE(done == expected || (expected && isTight)) << Printable(to);
        if (done) {
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
            EXPECT_TRUE(move());  // it is there
            return;
        }
        // Handles on the root directory keep nothing from moving there.
        const bool isFree = node->holders == 0 && (target == side->root || target->holders == 0);
        Carry(node, JoinPath(target->path, Name(node->path)),
              isOutside && isFree && target->IsDirectory(), move);
    }

    // ---- Contents and entries of files

    // What a grown range holds is free, but it must not change by itself.
    static void ReadGrown(const Held& file, uint64_t size) {
        Bytes& content = file.node->content;
        const size_t old = content.size();
        const Bytes grown =
            size > old ? ReadAt(file.handle, old, size - old).value_or(Bytes()) : Bytes();
        content.insert(content.end(), grown.begin(), grown.end());
        content.resize(std::min<uint64_t>(size, content.size()));
        EXPECT_EQ(content.size(), size);
    }
    void Transfer(const Held& file) {
        Node& node = *file.node;
        if (node.IsDirectory()) {
            const Bytes dots = ReadAt(file.handle, 0, 64).value_or(Bytes(64));
            EXPECT_TRUE(dots[0] == '.' && dots[32] == '.' && dots[33] == '.');
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
        const bool result =
            isWrite ? isEx ? Fat_WriteFileEx(file.handle, position, count, buffer, &done)
                           : Fat_WriteFile(file.handle, count, buffer, &done)
            : isEx ? Fat_ReadFileEx(file.handle, position, count, buffer, &done)
                    : Fat_ReadFile(file.handle, count, buffer, &done);
        EXPECT_TRUE(result == (!isEx || offset < size) && done == expected);
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
        EXPECT_TRUE(Fat_GetFileAttribute(file.handle, &info));
        EXPECT_TRUE(info.attributes == node.attributes &&
                    Fat_IsDir(file.handle) == node.IsDirectory());
        EXPECT_EQ(Printable(Fold(NameOf(info))), Printable(Fold(Name(node.path))));
        info.attributes = static_cast<unsigned int>(Below(rng, 256));
        node.attributes =
            static_cast<uint8_t>((info.attributes & ~0x18U) | (node.IsDirectory() ? 0x10U : 0U));
        int64_t written = 0;
        node.times.writeDate = static_cast<uint16_t>(Below(rng, 128) << 9 | 0x2F);
        node.times.writeTime = static_cast<uint16_t>(Below(rng, 24) << 11 | 0x6D);
        node.times.accessDate = node.times.writeDate;
        EXPECT_TRUE(FatTimeToSystemTime(node.times.writeDate, node.times.writeTime, &written));
        info.lastWriteTimeLow = info.lastAccessTimeLow = static_cast<unsigned int>(written);
        info.lastWriteTimeHigh = info.lastAccessTimeHigh = static_cast<unsigned int>(written >> 32);
        EXPECT_TRUE(Fat_SetFileAttribute(file.handle, &info));
    }
    void ResizeTo(const Held& file, uint64_t size) {
        const FatVolumeInfo info = file.side->mounted->Info();
        const uint64_t c = info.bytesPerCluster, old = file.node->content.size();
        const bool expected = (size + c - 1) / c <= (old + c - 1) / c + info.freeClusters;
        Say("resize from " + std::to_string(old) + " to " + std::to_string(size), u"");
        EXPECT_EQ(Fat_SetFileSize(file.handle, static_cast<unsigned int>(size)), expected);
        if (expected) {
            ReadGrown(file, size);
        }
    }
    void Resize(const Held& file) {
        const FatVolumeInfo info = file.side->mounted->Info();
        const uint64_t c = info.bytesPerCluster;
        const uint64_t allRoom = ((file.node->content.size() + c - 1) / c + info.freeClusters) * c;
        if (file.node->IsDirectory()) {
            // Any size that keeps its entries and that there is room for.
            Fat_SetFileSize(file.handle,
                            static_cast<unsigned int>(Below(rng, Chance(4) ? 600000 : 40000)));
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
        EXPECT_TRUE(name == u"." || name == u".." ||
                    find.side->nodes.contains(JoinPath(Fold(find.node->path), name)));
    }
    void StartFinds() {
        for (uint64_t left = Chance(20) ? findHandles : 2; left > 0; --left) {
            const NodeRef directory = PickParent(false);
            const auto names = ChildNames(*side, directory);
            const bool isRoot = directory == side->root;
            FatFileInfo info{};
            const int handle = isRoot ? Fat_FindFirstRootFile(&info)
                                      : Fat_FindFirstFile(directory->path.c_str(), &info);
            if (isRoot && names.empty()) {
                EXPECT_EQ(handle, -1);
                continue;
            }
            Hold(finds, directory, handle);
            if (handle >= 0) {
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
            if (Fat_FindNextFile(find.handle, &info)) {
                See(find, info);
                continue;
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
};

}  // namespace fatvol::test
