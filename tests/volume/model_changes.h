// The calls on the volumes of the model, and what they should do.
#pragma once

#include "api/library_state.h"
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
    ~Model() { CloseAll(nullptr); }

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
        side = side == &sides[0] ? &sides[1] : &sides[0];
        SetCurrentFileSystem(side->mounted->volume);
    }
    // The library's view, then the checker's.
    void Remount() {
        Tree tree;
        SpareHandles();
        ListTree(tree);
        EXPECT_EQ(Difference(Folded(Expected()), Folded(tree)), "");
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
        EXPECT_EQ(Difference(Expected(), Folded(ReadTree(disk)), Compare::WholeEntryContent), "");
        if (Chance(8) || !report.duplicateShortNames.empty()) {
            ExpectJudgedSound(disk);
        }
        return report.freeClusters;
    }
    void UseVolumes() {
        const uint64_t choice = Below(rng, 3);
        Say("volume", choice == 0 ? u"flush" : choice == 1 ? u"switch" : u"remount");
        if (choice == 0) {
            ASSERT_TRUE(Fat_FlushVolume(side->mounted->volume));
            CheckDisk();
        } else {
            choice == 1 ? Switch() : Remount();
        }
    }

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
    // Of a volume that is gone, whose handles do nothing any more, or of both.
    void CloseAll(const Side* gone) {
        unsigned int size = 0;
        FatFileInfo info{};
        for (std::vector<Held>* const list : {&files, &finds}) {
            for (size_t i = list->size(); i-- > 0;) {
                const Held& held = (*list)[i];
                if (!gone || held.side == gone) {
                    EXPECT_FALSE(gone && (list == &files ? Fat_GetFileSize(held.handle, &size)
                                                         : Fat_FindNextFile(held.handle, &info)));
                    Close(*list, i);
                }
            }
        }
    }
    // One of each, for looking around.
    void SpareHandles() {
        if (files.size() == fileHandles) {
            Close(files, 0);
        }
        if (finds.size() == findHandles) {
            Close(finds, 0);
        }
    }
    void OpenOrCloseMany() {
        const bool isOpening = Chance(2);
        const uint64_t most = isOpening ? Chance(3) ? 170 : 20 : files.size() + 1;
        for (uint64_t left = Below(rng, most); left > 0; --left) {
            const NodeRef node = isOpening ? Pick(true) : nullptr;
            if (node) {
                Hold(files, node, Fat_OpenFile(Spelled(node->path).c_str()));
            } else if (!isOpening) {
                Close(files, Below(rng, files.size()));
            }
        }
    }
    // A handle that is held already, on either volume, or a new one; null when there is nothing to
    // open.
    const Held* PickFile(const char* call) {
        const NodeRef node = files.size() < fileHandles && Chance(2) ? Pick(true) : nullptr;
        if (node) {
            Hold(files, node, Fat_OpenFile(Spelled(node->path).c_str()));
        }
        if (files.empty()) {
            return nullptr;
        }
        const Held& file = node ? files.back() : files[Below(rng, files.size())];
        Say(call, file.node->path);
        return &file;
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
            SpareHandles();
            if (!Find(above) && (isCertain || CanOpen(above))) {
                Add(above, 0x10);
            }
        }
    }
    void CreateFiles() {
        const uint32_t clusterBytes = side->mounted->Info().bytesPerCluster;
        const bool isMany = Chance(6);  // with long names, until there is no room
        if (!isMany) {
            Create(NewPath(), false, Chance(3) ? RandomSize(rng, clusterBytes, 300000) : 0);
        }
        const std::u16string directory = PickParent(false)->path;
        bool isRoom = isMany && directory.size() < 50;
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
    void DeleteTree() {
        if (const NodeRef node = Pick(true)) {
            const std::u16string top = node->path.substr(0, node->path.find(u'\\'));
            const std::vector<NodeRef> nodes = Subtree(Find(top));
            std::for_each(nodes.rbegin(), nodes.rend(), [&](const NodeRef& n) { DeleteNode(n); });
        }
    }
    void Delete() {
        const NodeRef node = Pick(true);
        if (node && !Chance(4)) {
            DeleteNode(node);
        } else {
            DeleteTree();
        }
        EXPECT_FALSE(Fat_DeleteFile(u"No such thing"));
    }

    // ---- Renaming and moving

    // All open paths at or below the new one must keep to the limit; what is not open need not, as
    // far as the cache does not hold it either.
    template <class Call>
    bool Carry(const NodeRef& node, const std::u16string& to, bool expected, Call call) {
        bool fits = true, allFit = true;
        for (const NodeRef& each : Subtree(node)) {
            const size_t units = to.size() + each->path.size() - node->path.size();
            allFit = allFit && units <= maxPathUnits;
            fits = fits && (units <= maxPathUnits || (each != node && each->holders == 0));
        }
        if (fits != allFit) {
            return false;
        }
        Say("carry " + Printable(node->path) + " to", to);
        expected = expected && fits && !Find(to);
        const bool isTight = IsRoomShort(to, 0), done = call();
        EXPECT_TRUE(done == expected || (expected && isTight)) << Printable(to);
        if (done) {
            Rebase(node, to);
        }
        return done;
    }
    void Rename() {
        if (const NodeRef node = Pick(true)) {
            const std::u16string directory = Parent(node->path);
            const std::u16string name = Chance(8) ? Fold(Name(node->path)) : NewName(directory);
            const std::u16string ignored = name.size() < 250 ? u"Other" : u"";
            const bool done = Carry(node, JoinPath(directory, name), true, [&] {
                return Fat_RenameFile(Spelled(node->path).c_str(), JoinPath(ignored, name).c_str());
            });
            node->times = done ? EntryTimes() : node->times;
        }
    }
    void Move() {
        const NodeRef node = Pick(true), target = PickParent(Chance(10));
        if (!node) {
            return;
        }
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
        // The root directory is held by nothing that keeps others from moving there.
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
    void Transfer() {
        const Held* const file = PickFile("transfer");
        if (!file || file->node->IsDirectory()) {
            const Bytes dots =
                file ? ReadAt(file->handle, 0, 64).value_or(Bytes(64)) : Bytes(64, '.');
            EXPECT_TRUE(dots[0] == '.' && dots[32] == '.' && dots[33] == '.');
            return;
        }
        Node& node = *file->node;
        const bool isEx = Chance(2), isWrite = Chance(2);
        const size_t size = node.content.size();
        const size_t offset = isEx ? Below(rng, size + 2) : node.position;
        const auto position = static_cast<long long>(offset);
        const auto count = static_cast<unsigned int>(Below(rng, Chance(2) ? 100 : size + 9));
        const size_t expected = std::min<size_t>(count, size - std::min(offset, size));
        uint8_t* const place = node.content.data() + std::min(offset, size);
        Bytes buffer = RandomBytes(rng, count + 1);
        unsigned int done = 77;
        const bool result =
            isWrite ? isEx ? Fat_WriteFileEx(file->handle, position, count, buffer.data(), &done)
                           : Fat_WriteFile(file->handle, count, buffer.data(), &done)
            : isEx ? Fat_ReadFileEx(file->handle, position, count, buffer.data(), &done)
                    : Fat_ReadFile(file->handle, count, buffer.data(), &done);
        EXPECT_TRUE(result == (!isEx || offset < size) && done == expected);
        if (isWrite) {
            std::copy_n(buffer.begin(), expected, place);
        }
        EXPECT_TRUE(std::equal(place, place + expected, buffer.begin()));
        node.position += isEx ? 0 : static_cast<uint32_t>(expected);
    }
    void SeekAndDescribe() {
        const Held* const file = PickFile("seek and describe");
        if (!file) {
            return;
        }
        Node& node = *file->node;
        const auto size = static_cast<uint32_t>(node.content.size());
        const auto offset = static_cast<uint32_t>(Below(rng, size + 9));
        const auto origin = static_cast<unsigned int>(Below(rng, 4));
        const uint32_t targets[] = {offset, node.position + offset,
                                    offset <= size ? size - offset : 0, node.position};
        EXPECT_TRUE(Fat_SetFileOffset(file->handle, offset, origin));
        node.position = std::min(targets[origin], size);
        FatFileInfo info{};
        unsigned int actualSize = 77, position = 77;
        EXPECT_TRUE(Fat_GetFileAttribute(file->handle, &info) &&
                    Fat_GetFileSize(file->handle, &actualSize) &&
                    Fat_GetFileOffset(file->handle, &position));
        EXPECT_TRUE(actualSize == size && position == node.position &&
                    info.attributes == node.attributes &&
                    Fat_IsDir(file->handle) == node.IsDirectory());
        EXPECT_EQ(Printable(Fold(NameOf(info))), Printable(Fold(Name(node.path))));
        if (Chance(3)) {
            SetAttributes(*file, info);
        }
    }
    void SetAttributes(const Held& file, FatFileInfo& info) {
        Node& node = *file.node;
        const auto attributes = static_cast<uint8_t>(Below(rng, 256));
        int64_t written = 0;
        node.times.writeDate = static_cast<uint16_t>(Below(rng, 128) << 9 | 0x2F);
        node.times.writeTime = static_cast<uint16_t>(Below(rng, 24) << 11 | 0x6D);
        node.times.accessDate = node.times.writeDate;
        EXPECT_TRUE(FatTimeToSystemTime(node.times.writeDate, node.times.writeTime, &written));
        info.attributes = attributes;
        info.lastWriteTimeLow = info.lastAccessTimeLow = static_cast<unsigned int>(written);
        info.lastWriteTimeHigh = info.lastAccessTimeHigh = static_cast<unsigned int>(written >> 32);
        EXPECT_TRUE(Fat_SetFileAttribute(file.handle, &info));
        node.attributes =
            static_cast<uint8_t>((attributes & ~0x18U) | (node.IsDirectory() ? 0x10U : 0U));
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
    void Resize() {
        const Held* const file = PickFile("resize");
        if (!file) {
            return;
        }
        const FatVolumeInfo info = file->side->mounted->Info();
        const uint64_t c = info.bytesPerCluster,
                       clusters = (file->node->content.size() + c - 1) / c;
        const uint64_t allRoom = (clusters + info.freeClusters) * c;
        if (file->node->IsDirectory()) {
            const uint64_t sizes[] = {0, (1ULL << 32) - c + 1, (2U << 20) + 1, Below(rng, 40000)};
            const size_t choice = Below(rng, 4);
            const bool done =
                Fat_SetFileSize(file->handle, static_cast<unsigned int>(sizes[choice]));
            EXPECT_TRUE(!done || choice == 3);
        } else if (Chance(4) && allRoom < 3000000) {  // to the last free cluster
            ResizeTo(*file, allRoom);
            ResizeTo(*file, allRoom + 1);
            ResizeTo(*file, allRoom - std::min(allRoom, Below(rng, 30) * c));
        } else {
            ResizeTo(*file, RandomSize(rng, static_cast<uint32_t>(c), 700000));
        }
    }

    // ---- Enumerating

    static void See(Held& find, const FatFileInfo& info) {
        const std::u16string name = Fold(NameOf(info));
        if (name != u"." && name != u"..") {
            const auto node = find.side->nodes.find(JoinPath(Fold(find.node->path), name));
            const auto shown = find.shown.find(name);
            EXPECT_TRUE(node != find.side->nodes.end() &&
                        info.attributes == node->second->attributes)
                << Printable(name);
            EXPECT_TRUE(shown == find.shown.end() || ++shown->second == 1) << Printable(name);
        }
    }
    void StartFinds() {
        for (uint64_t left = Chance(20) ? findHandles : 2; left > 0; --left) {
            const NodeRef directory = PickParent(false);
            const auto names = ChildNames(*side, directory);
            FatFileInfo info{};
            const int handle = directory == side->root
                                   ? Fat_FindFirstRootFile(&info)
                                   : Fat_FindFirstFile(directory->path.c_str(), &info);
            if (directory == side->root && names.empty()) {
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
