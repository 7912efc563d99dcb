// Random calls on file handles do what a plain model does.
#include "fixture.h"

namespace fatvol::test {
namespace {

// Files with their contents, handles on them, and the position that the handles on a file share.
struct Model {
    Rng rng;
    ImageBuilder builder;
    Tree tree = {};
    std::map<int, std::u16string> handles = {};
    std::map<std::u16string, uint32_t> positions = {};

    void Open() {
        const std::u16string& path = std::next(tree.begin(), Random(tree.size()))->first;
        int lowest = 0;
        while (handles.contains(lowest)) {
            ++lowest;
        }
        ASSERT_EQ(Fat_OpenFile(path.c_str()), lowest < 160 ? lowest : -1);
        if (lowest < 160) {
            handles[lowest] = path;
        }
    }

    void Close(int handle) {
        ASSERT_EQ(Fat_CloseFile(handle), handles.contains(handle));
        if (const auto closed = handles.extract(handle)) {
            positions[closed.mapped()] = 0;
        }
    }

    int Random(uint64_t limit) { return static_cast<int>(Below(rng, limit)); }
    // A number around the size of a file.
    uint32_t Around(size_t size) {
        return static_cast<uint32_t>(Random(3) == 0 ? Random(100) : Random(size + 9));
    }

    void Seek(int handle, uint32_t size, uint32_t& position) {
        const uint32_t offset = Random(2) == 0 ? Around(size) : 0 - Around(size);
        const auto origin = static_cast<uint32_t>(Random(4));
        const uint32_t targets[] = {offset, position + offset, offset <= size ? size - offset : 0,
                                    position};
        position = std::min(targets[origin], size);
        unsigned int actual = 77, actualSize = 77;
        ASSERT_TRUE(Fat_SetFileOffset(handle, offset, origin));
        ASSERT_TRUE(Fat_GetFileOffset(handle, &actual) && Fat_GetFileSize(handle, &actualSize));
        ASSERT_EQ(std::pair(actual, actualSize), std::pair(position, size));
    }

    // Reads and writes, at the position or (Ex) elsewhere. Some reads of the storage fail.
    void Transfer(int handle, Bytes& content, uint32_t& position) {
        const bool isEx = Random(2) == 0, isWrite = Random(2) == 0;
        const long long offset = isEx ? Around(content.size()) - 5LL : position;
        const bool isInside = offset >= 0 && offset < static_cast<long long>(content.size());
        const auto begin = content.begin() + (isInside ? offset : 0);
        const uint32_t count = Around(content.size());
        Bytes buffer = RandomBytes(rng, count + 1);
        unsigned int done = 77;
        FailurePlan& failure = builder.disk.failure;
        failure.countdown = !isWrite && Random(4) == 0;
        const bool isFaulty = failure.countdown == 1;
        void* const out = buffer.data();
        const bool isDone = isWrite ? (isEx ? Fat_WriteFileEx(handle, offset, count, out, &done)
                                            : Fat_WriteFile(handle, count, out, &done))
                                    : (isEx ? Fat_ReadFileEx(handle, offset, count, out, &done)
                                            : Fat_ReadFile(handle, count, out, &done));
        const bool hasFailed = isFaulty && std::exchange(failure.countdown, 0) == 0;
        ASSERT_EQ(isDone, (isInside || !isEx) && !hasFailed);
        if (!hasFailed) {
            ASSERT_EQ(done, isInside ? std::min<long long>(count, content.end() - begin) : 0);
            if (isWrite) {
                std::copy_n(buffer.begin(), done, begin);
            }
            ASSERT_TRUE(std::equal(buffer.begin(), buffer.begin() + done, begin));
            position += isEx ? 0 : done;
        }
    }

    void Step() {
        const int choice = Random(10);
        if (choice < 2 || handles.empty()) {
            Open();
        } else if (choice == 2) {
            Close(Random(170) - 5);
        } else {
            const auto& [handle, path] = *std::next(handles.begin(), Random(handles.size()));
            Bytes& content = tree[path].content;
            choice < 5 ? Seek(handle, static_cast<uint32_t>(content.size()), positions[path])
                       : Transfer(handle, content, positions[path]);
        }
    }
};

TEST_F(VolumeTest, FilesActLikeTheModel) {
    for (const VolumeLayout& layout :
         {VolumeLayout{12, 4096, 128, 150}, {16, 512, 4, 40000}, {32, 256, 1, 30000}}) {
        SCOPED_TRACE(layout.fatType);
        Model model{Rng(layout.fatType), ImageBuilder(layout)};
        MemoryDisk& disk = model.builder.disk;
        model.tree = FillRandomTree(model.builder, model.rng, 400, 200000);
        std::erase_if(model.tree, [](const auto& node) { return node.second.IsDirectory(); });
        for (int mounts = 0; mounts < 3; ++mounts) {
            const Mounted mounted(disk);
            for (int step = 0; step < 2000 && !HasFailure(); ++step) {
                model.Step();
            }
            while (!model.handles.empty()) {
                model.Close(model.handles.begin()->first);
            }
        }
        EXPECT_EQ(CheckImage(disk).Text(), "");
        Tree tree = ReadTree(disk);
        std::erase_if(tree, [](const auto& node) { return node.second.IsDirectory(); });
        EXPECT_EQ(Difference(model.tree, tree, Compare::WholeEntryContent), "");
    }
}

}  // namespace
}  // namespace fatvol::test
