// What the model does with open files and enumerations.
#pragma once

#include "dir/fat_time.h"
#include "model_changes.h"

namespace fatvol::test {

struct ModelHandles : ModelChanges {
    using ModelChanges::ModelChanges;

    void Transfer() {
        WithHandle(true, [&](const HeldFile& file) {
            const auto& [of, ref, handle] = file;
            Node& node = *ref;
            if (node.isDirectory) {
                const Bytes dots = ReadAt(handle, 0, 64).value_or(Bytes(64));
                EXPECT_TRUE(dots[0] == '.' && dots[1] == ' ' && dots[32] == '.' && dots[33] == '.');
                return;
            }
            const bool isEx = Chance(2), isWrite = Chance(2);
            const size_t size = node.content.size();
            const size_t offset = isEx ? Below(rng, size + 2) : node.position;
            const auto count = static_cast<unsigned int>(Below(rng, Chance(2) ? 100 : size + 9));
            const size_t expected = std::min<size_t>(count, size - std::min(offset, size));
            Bytes buffer = RandomBytes(rng, count + 1);
            const auto place = node.content.begin() + static_cast<long>(std::min(offset, size));
            const auto position = static_cast<long long>(offset);
            unsigned int done = 77;
            const bool result =
                isWrite ? isEx ? Fat_WriteFileEx(handle, position, count, buffer.data(), &done)
                               : Fat_WriteFile(handle, count, buffer.data(), &done)
                : isEx ? Fat_ReadFileEx(handle, position, count, buffer.data(), &done)
                        : Fat_ReadFile(handle, count, buffer.data(), &done);
            EXPECT_TRUE(result == (!isEx || offset < size) && done == expected);
            const auto length = static_cast<long>(expected);
            if (isWrite) {
                std::copy_n(buffer.begin(), length, place);
            }
            EXPECT_TRUE(std::equal(place, place + length, buffer.begin()));
            node.position += isEx ? 0 : static_cast<uint32_t>(expected);
        });
    }
    void Seek() {
        WithHandle(true, [&](const HeldFile& file) {
            Node& node = *file.node;
            const auto size = static_cast<uint32_t>(node.content.size());
            const auto offset = static_cast<uint32_t>(Below(rng, size + 9));
            const auto origin = static_cast<unsigned int>(Below(rng, 4));
            const uint32_t targets[] = {offset, node.position + offset,
                                        offset <= size ? size - offset : 0, node.position};
            EXPECT_TRUE(Fat_SetFileOffset(file.handle, offset, origin));
            node.position = std::min(targets[origin], size);
            FatFileInfo info{};
            unsigned int actualSize = 77, position = 77;
            EXPECT_TRUE(Fat_GetFileAttribute(file.handle, &info) &&
                        Fat_GetFileSize(file.handle, &actualSize) &&
                        Fat_GetFileOffset(file.handle, &position));
            EXPECT_TRUE(actualSize == size && position == node.position &&
                        info.attributes == node.attributes &&
                        Fat_IsDir(file.handle) == node.isDirectory);
            EXPECT_EQ(Printable(Fold(NameOf(info))), Printable(Fold(Name(node.path))));
        });
    }
    void SetAttributes() {
        WithHandle(true, [&](const HeldFile& file) {
            const auto& [of, ref, handle] = file;
            Node& node = *ref;
            EntryTimes& times = node.times;
            FatFileInfo info{};
            EXPECT_TRUE(Fat_GetFileAttribute(handle, &info));
            info.attributes = static_cast<unsigned int>(Below(rng, 256));
            int64_t written = 0;
            times.writeDate = static_cast<uint16_t>(Below(rng, 128) << 9 | 0x2F);
            times.writeTime = static_cast<uint16_t>(Below(rng, 24) << 11 | 0x6D);
            times.accessDate = times.writeDate;
            EXPECT_TRUE(FatTimeToSystemTime(times.writeDate, times.writeTime, &written));
            info.lastWriteTimeLow = info.lastAccessTimeLow = static_cast<unsigned int>(written);
            info.lastWriteTimeHigh = info.lastAccessTimeHigh =
                static_cast<unsigned int>(written >> 32);
            EXPECT_TRUE(Fat_SetFileAttribute(handle, &info));
            node.attributes =
                static_cast<uint8_t>((info.attributes & ~0x18U) | (node.isDirectory ? 0x10U : 0U));
        });
    }
    void ResizeTo(const HeldFile& file, uint64_t size) {
        const FatVolumeInfo info = file.side->mounted->Info();
        const uint64_t c = info.bytesPerCluster, old = file.node->content.size();
        const bool expected = (size + c - 1) / c <= (old + c - 1) / c + info.freeClusters;
        Say("  from " + std::to_string(old) + " to " + std::to_string(size));
        EXPECT_EQ(Fat_SetFileSize(file.handle, static_cast<unsigned int>(size)), expected);
        if (expected) {
            ReadGrown(file, size);
        }
    }
    void Resize() {
        WithHandle(false, [&](const HeldFile& file) {
            const auto& [of, ref, handle] = file;
            Node& node = *ref;
            const uint32_t c = of->mounted->Info().bytesPerCluster;
            if (!node.isDirectory) {
                ResizeTo(file, RandomSize(rng, c, 700000));
                return;
            }
            const uint64_t sizes[] = {0, (1ULL << 32) - c + 1, (2U << 20) + 1, Below(rng, 40000)};
            const size_t choice = Below(rng, 4);
            const bool done = Fat_SetFileSize(handle, static_cast<unsigned int>(sizes[choice]));
            EXPECT_TRUE(!done || choice == 3);
        });
    }
    // To the last free cluster, and not one further.
    void UseAllRoom() {
        WithHandle(false, [&](const HeldFile& file) {
            const auto& [of, ref, handle] = file;
            Node& node = *ref;
            const FatVolumeInfo info = of->mounted->Info();
            const uint64_t c = info.bytesPerCluster;
            const uint64_t size = ((node.content.size() + c - 1) / c + info.freeClusters) * c;
            if (!node.isDirectory && size < 3000000) {
                ResizeTo(file, size);
                ResizeTo(file, size + 1);
                ResizeTo(file, size - std::min(size, Below(rng, 30) * c));
            }
        });
    }
    void OpenMany() {
        for (uint64_t left = Below(rng, Chance(3) ? 170 : 20); left > 0; --left) {
            if (const NodeRef node = Pick(true, true)) {
                Open(node);
            }
        }
    }
    void CloseMany() {
        for (uint64_t left = Below(rng, held.size() + 1); left > 0; --left) {
            Close(Below(rng, held.size()));
        }
    }

    // ---- Actions: enumerating

    static void See(HeldFind& find, const FatFileInfo& info) {
        const std::u16string name = Fold(NameOf(info));
        if (name == u"." || name == u"..") {
            return;
        }
        const std::u16string directory = find.directory ? Fold(find.directory->path) : u"";
        const auto found = find.side->nodes.find(JoinPath(directory, name));
        EXPECT_TRUE(found != find.side->nodes.end() && info.attributes == found->second->attributes)
            << Printable(name);
        EXPECT_TRUE(find.seen.insert(name).second || !find.stable.contains(name))
            << "twice: " << Printable(name);
    }
    void StartFinds() {
        for (uint64_t left = Chance(20) ? findHandles : 2; left > 0; --left) {
            StartFind();
        }
    }
    void StartFind() {
        const NodeRef directory = Chance(3) ? nullptr : Pick(true, false);
        const std::set<std::u16string> names = ChildNames(*side, directory);
        FatFileInfo info{};
        const int handle = FindFirst(directory, &info);
        EXPECT_EQ(handle >= 0, (directory || !names.empty()) && finds.size() < findHandles);
        if (handle >= 0) {
            finds.push_back({side, directory, handle, names});
            See(finds.back(), info);
            if (directory) {
                ++directory->holders;
            }
        }
    }
    void NextFind() {
        if (finds.empty()) {
            return;
        }
        const size_t index = Below(rng, finds.size());
        HeldFind& find = finds[index];
        FatFileInfo info{};
        bool isFound = true;
        for (uint64_t left = 1 + Below(rng, 12); left > 0 && isFound; --left) {
            isFound = Fat_FindNextFile(find.handle, &info);
            if (isFound) {
                See(find, info);
            }
        }
        if (isFound) {
            return;
        }
        EXPECT_TRUE(std::includes(find.seen.begin(), find.seen.end(), find.stable.begin(),
                                  find.stable.end()));
        if (Chance(2)) {
            CloseFind(index);
        } else {  // the next call starts over
            find.stable = ChildNames(*find.side, find.directory);
            find.seen.clear();
        }
    }
};

}  // namespace fatvol::test
