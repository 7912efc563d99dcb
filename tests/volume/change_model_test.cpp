// Random sequences of changes against a plain model of the tree. Whatever happens, the volume must
// show the model, through the library and, after unmounting, to the checker.
#include "api/library_state.h"
#include "dir/upcase.h"
#include "fixture.h"

namespace fatvol::test {
namespace {

struct Node {
    std::u16string path;
    bool isDirectory = false;
    Bytes content;
    uint8_t attributes = 0;
};

std::u16string Fold(std::u16string text) {
    for (char16_t& unit : text) {
        unit = UpcaseUnit(unit);
    }
    return text;
}

struct HeldFile {
    std::u16string key;
    int handle;
};

class Model {
public:
    Model(const VolumeLayout& layout, Rng& random)
        : rng(random), builder(layout), mounted(std::make_unique<Mounted>(builder.disk)) {}
    ~Model() { CloseAll(); }

    void Step() {
        using Action = void (Model::*)();
        static constexpr Action actions[] = {
            &Model::CreateFile, &Model::CreateFile, &Model::CreateDir,     &Model::Delete,
            &Model::Rename,     &Model::Move,       &Model::Write,         &Model::Write,
            &Model::Resize,     &Model::Resize,     &Model::SetAttributes, &Model::Hold,
            &Model::Drop,       &Model::Flush};
        (this->*actions[Below(rng, std::size(actions))])();
        EXPECT_TRUE(IsLibrarySound());
    }

    // The library's view, then the checker's, then the library's again after a new mount.
    void Check() {
        CheckListing();
        CloseAll();
        ASSERT_TRUE(mounted->Unmount());
        const ImageReport report = CheckImage(builder.disk);
        // A move carries its run with its alias unchanged, which may double one.
        EXPECT_TRUE(report.faults.empty() && report.lostClusters == 0 && !report.areFatsDifferent)
            << report.Text();
        EXPECT_EQ(Difference(Expected(), Folded(ReadTree(builder.disk))), "");
        mounted = std::make_unique<Mounted>(builder.disk);
        EXPECT_EQ(mounted->Info().freeClusters, report.freeClusters);
        CheckListing();
    }

private:
    std::map<std::u16string, Node> nodes;  // by folded path
    std::vector<HeldFile> held;
    Rng& rng;
    ImageBuilder builder;
    std::unique_ptr<Mounted> mounted;

    Tree Expected() const {
        Tree tree;
        for (const auto& [key, node] : nodes) {
            TreeNode& shown = tree[key];
            const auto size = static_cast<uint32_t>(node.isDirectory ? 0 : node.content.size());
            shown.entry = MakeShortEntry({}, node.attributes, 0, size);
            shown.content = node.content;
        }
        return tree;
    }
    static Tree Folded(const Tree& tree) {
        Tree folded;
        for (const auto& [path, node] : tree) {
            folded[Fold(path)] = node;
        }
        return folded;
    }
    void CheckListing() {
        Tree tree;
        ListTree(tree);
        EXPECT_EQ(Difference(Expected(), Folded(tree)), "");
    }

    // A failure is right only when room may be short.
    bool RoomIsShort(uint64_t bytes) const {
        const FatVolumeInfo info = mounted->Info();
        const uint64_t slack = 8 + 8192 / info.bytesPerCluster;
        return info.freeClusters < bytes / info.bytesPerCluster + slack || info.fatType != 32;
    }
    Node* Pick(bool directories, bool files) {
        std::vector<Node*> choice;
        for (auto& [key, node] : nodes) {
            if (node.isDirectory ? directories : files) {
                choice.push_back(&node);
            }
        }
        return choice.empty() ? nullptr : choice[Below(rng, choice.size())];
    }
    std::u16string NewPath() {
        const Node* parent = Below(rng, 4) != 0 ? Pick(true, false) : nullptr;
        const std::u16string directory = parent ? parent->path : u"";
        return JoinPath(directory, RandomName(rng, Below(rng, 8) == 0 ? 80 : 20));
    }
    bool IsHeld(const std::u16string& key, bool below) const {
        return std::any_of(held.begin(), held.end(), [&](const HeldFile& file) {
            return file.key == key || (below && file.key.starts_with(key + u"\\"));
        });
    }
    bool HasChildren(const std::u16string& key) const {
        const auto next = nodes.upper_bound(key + u"\\");
        return next != nodes.end() && next->first.starts_with(key + u"\\");
    }
    static std::u16string Parent(const std::u16string& path) {
        const size_t separator = path.rfind(u'\\');
        return separator == path.npos ? u"" : path.substr(0, separator);
    }
    static std::u16string Name(const std::u16string& path) {
        return path.substr(path.rfind(u'\\') + 1);
    }
    void Add(const std::u16string& path, bool isDirectory, uint8_t attributes, Bytes content = {}) {
        const auto stored = static_cast<uint8_t>(isDirectory ? attributes | 0x10 : attributes);
        nodes[Fold(path)] = {path, isDirectory, std::move(content), stored};
    }

    void CreateFile() {
        const std::u16string path = NewPath();
        const uint32_t size =
            Below(rng, 3) == 0 ? RandomSize(rng, mounted->Info().bytesPerCluster, 300000) : 0;
        const bool expected = path.size() <= 259 && !nodes.contains(Fold(path));
        const int handle = Fat_CreateFile(path.c_str(), size, 0x21);
        if (handle < 0) {
            EXPECT_TRUE(!expected || RoomIsShort(size)) << Printable(path);
            return;
        }
        EXPECT_TRUE(expected) << Printable(path);
        Add(path, false, 0x21, size == 0 ? Bytes() : ReadAt(handle, 0, size).value_or(Bytes()));
        EXPECT_EQ(nodes[Fold(path)].content.size(), size);
        EXPECT_TRUE(Fat_CloseFile(handle));
    }
    void CreateDir() {
        const std::u16string path = NewPath();
        const bool expected = path.size() <= 259 && !nodes.contains(Fold(path));
        const bool done = Fat_CreateDir(path.c_str(), 0x02);
        EXPECT_TRUE(done == expected || (expected && RoomIsShort(0))) << Printable(path);
        if (done) {
            Add(path, true, 0x02);
        }
    }
    void Delete() {
        const Node* node = Pick(true, true);
        if (!node) {
            return;
        }
        const std::u16string key = Fold(node->path);
        const bool expected = !IsHeld(key, false) && !HasChildren(key);
        EXPECT_EQ(Fat_DeleteFile(node->path.c_str()), expected) << Printable(key);
        if (expected) {
            nodes.erase(key);
        }
    }
    // Gives a node and all below it another path.
    void Rebase(const std::u16string& from, const std::u16string& to) {
        std::map<std::u16string, Node> moved;
        for (auto it = nodes.begin(); it != nodes.end();) {
            if (it->first == Fold(from) || it->first.starts_with(Fold(from) + u"\\")) {
                Node node = std::move(it->second);
                node.path = to + node.path.substr(from.size());
                moved[Fold(node.path)] = std::move(node);
                it = nodes.erase(it);
            } else {
                ++it;
            }
        }
        nodes.merge(moved);
        for (HeldFile& file : held) {
            if (file.key == Fold(from) || file.key.starts_with(Fold(from) + u"\\")) {
                file.key = Fold(to) + file.key.substr(from.size());
            }
        }
    }
    // Whether a new path keeps all paths below it within the limit.
    bool Fits(const Node& node, const std::u16string& newPath) const {
        size_t deepest = 0;
        for (const auto& [key, other] : nodes) {
            if (key.starts_with(Fold(node.path))) {
                deepest = std::max(deepest, key.size());
            }
        }
        return deepest - node.path.size() + newPath.size() <= 259;
    }
    void Rename() {
        const Node* node = Pick(true, true);
        const std::u16string name = RandomName(rng, 30);
        if (!node || !Fits(*node, JoinPath(Parent(node->path), name))) {
            return;
        }
        const std::u16string from = node->path;
        const std::u16string to = JoinPath(Parent(from), name);
        const bool expected = !nodes.contains(Fold(to));
        const bool done = Fat_RenameFile(from.c_str(), (u"Other\\" + name).c_str());
        EXPECT_TRUE(done == expected || (expected && RoomIsShort(0)));
        if (done) {
            Rebase(from, to);
        }
    }
    void Move() {
        const Node* node = Pick(true, true);
        const Node* target = Below(rng, 4) != 0 ? Pick(true, false) : nullptr;
        if (!node) {
            return;
        }
        const std::u16string from = node->path;
        const std::u16string directory = target ? target->path : u"";
        const std::u16string to = JoinPath(directory, Name(from));
        const bool inside = target && (Fold(directory) + u"\\").starts_with(Fold(from) + u"\\");
        const bool stays = Fold(Parent(from)) == Fold(directory);
        if (!inside && !stays && !Fits(*node, to)) {
            return;
        }
        const bool free = !nodes.contains(Fold(to)) && !IsHeld(Fold(from), false) &&
                          !IsHeld(Fold(directory), false);
        const bool expected = !inside && (stays || free);
        const bool done = Fat_MoveFile(from.c_str(), target ? directory.c_str() : nullptr);
        EXPECT_TRUE(done == expected || (expected && RoomIsShort(0)))
            << Printable(from) << " to " << Printable(directory);
        if (done && !stays) {
            Rebase(from, to);
        }
    }
    void Write() {
        Node* node = Pick(false, true);
        if (!node || node->content.empty()) {
            return;
        }
        const File file(node->path);
        const uint64_t offset = Below(rng, node->content.size());
        const Bytes bytes = RandomBytes(rng, 1 + Below(rng, node->content.size() - offset));
        ASSERT_TRUE(WriteAt(file.handle, offset, bytes)) << Printable(node->path);
        std::copy(bytes.begin(), bytes.end(), node->content.begin() + static_cast<long>(offset));
    }
    void Resize() {
        Node* node = Pick(false, true);
        if (!node) {
            return;
        }
        const File file(node->path);
        const uint32_t size = RandomSize(rng, mounted->Info().bytesPerCluster, 700000);
        if (!Fat_SetFileSize(file.handle, size)) {
            EXPECT_TRUE(RoomIsShort(size) && size > node->content.size());
            return;
        }
        // What a grown range holds is free, but it must not change by itself.
        const size_t kept = std::min<size_t>(size, node->content.size());
        node->content.resize(kept);
        if (size > kept) {
            const Bytes grown = ReadAt(file.handle, kept, size - kept).value_or(Bytes());
            EXPECT_EQ(grown.size(), size - kept);
            node->content.insert(node->content.end(), grown.begin(), grown.end());
        }
    }
    void SetAttributes() {
        Node* node = Pick(true, true);
        if (!node) {
            return;
        }
        const File file(node->path);
        FatFileInfo info{};
        ASSERT_TRUE(Fat_GetFileAttribute(file.handle, &info));
        info.attributes = static_cast<unsigned int>(Below(rng, 256));
        ASSERT_TRUE(Fat_SetFileAttribute(file.handle, &info));
        node->attributes =
            static_cast<uint8_t>((info.attributes & ~0x18U) | (node->isDirectory ? 0x10U : 0U));
    }
    void Hold() {
        const Node* node = Pick(true, true);
        if (node && held.size() < 20) {
            held.push_back({Fold(node->path), Fat_OpenFile(node->path.c_str())});
            EXPECT_GE(held.back().handle, 0) << Printable(node->path);
        }
    }
    void Drop() {
        if (!held.empty()) {
            EXPECT_TRUE(Fat_CloseFile(held.back().handle));
            held.pop_back();
        }
    }
    void CloseAll() {
        while (!held.empty()) {
            Drop();
        }
    }
    // After a flush the image holds everything, mounted or not.
    void Flush() {
        ASSERT_TRUE(Fat_FlushVolume(mounted->volume));
        const ImageReport report = CheckImage(builder.disk);
        EXPECT_TRUE(report.faults.empty() && report.lostClusters == 0 && !report.areFatsDifferent)
            << report.Text();
        EXPECT_EQ(Difference(Expected(), Folded(ReadTree(builder.disk))), "");
    }
};

class ChangeModel : public VolumeTest, public testing::WithParamInterface<VolumeLayout> {};

TEST_P(ChangeModel, ShowsWhatWasDone) {
    const char* wanted = std::getenv("FATVOL_TEST_SEQUENCE");
    const uint64_t start = wanted ? std::strtoull(wanted, nullptr, 10) : 1;
    for (uint64_t sequence = start; sequence < start + (wanted ? 1 : 4); ++sequence) {
        SCOPED_TRACE("FATVOL_TEST_SEQUENCE=" + std::to_string(sequence));
        Rng rng(sequence);
        Model model(GetParam(), rng);
        for (int step = 0; step < 400 && !HasFailure(); ++step) {
            model.Step();
            if (step % 50 == 49) {
                model.Check();
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Geometries, ChangeModel,
    testing::Values(
        VolumeLayout{.fatType = 12, .bytesPerSector = 128, .clusterCount = 3000, .fill = 0xA5},
        VolumeLayout{.fatType = 12, .clusterCount = 500, .rootEntryCount = 64, .fill = 0xA5},
        VolumeLayout{.fatType = 16, .sectorsPerCluster = 4, .clusterCount = 5000, .fill = 0x41},
        VolumeLayout{.fatType = 32, .clusterCount = 20000, .fill = 0xA5},
        VolumeLayout{.fatType = 32,
                     .bytesPerSector = 4096,
                     .sectorsPerCluster = 128,
                     .clusterCount = 300,
                     .fill = 0x0F}));

}  // namespace
}  // namespace fatvol::test
