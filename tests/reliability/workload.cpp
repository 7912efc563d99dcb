#include "workload.h"

#include <fstream>
#include <span>
#include <sstream>

#include "api/library_state.h"

namespace fatvol::test {
namespace {

constexpr uint32_t hugeBytes = 68U << 20;  // the block cache holds 64 MiB

// One buffer for all transfers, so that steps allocate nothing of their own.
uint8_t* Buffer() {
    static const std::unique_ptr<uint8_t[]> buffer(new uint8_t[hugeBytes]);
    return buffer.get();
}

std::u16string ParentOf(const std::u16string& path) {
    const size_t separator = path.rfind(u'\\');
    return separator == path.npos ? u"" : path.substr(0, separator);
}

struct Start {
    ImageBuilder builder;
    Model model;
};

ImageBuilder BuildStart(uint32_t fatType) {
    ImageBuilder builder({.fatType = fatType,
                          .sectorsPerCluster = fatType == 12   ? 64U
                                               : fatType == 16 ? 4U
                                                               : 2U,
                          .clusterCount = fatType == 12   ? 2600U
                                          : fatType == 16 ? 41000U
                                                          : 80000U,
                          .rootEntryCount = 128});
    EntryOptions huge;  // in two pieces, and without bytes of its own
    huge.size = hugeBytes;
    const uint32_t clusters = hugeBytes / builder.geometry.clusterBytes;
    for (uint32_t i = 0; i < clusters; ++i) {
        huge.clusters.push_back(300 + i + (i < clusters / 2 ? 0 : 50));
    }
    builder.AddFile(ImageBuilder::root, u"HUGE", {}, huge);
    const size_t u = builder.AddDirectory(ImageBuilder::root, u"Untouched");
    builder.AddFile(u, u"whole", Bytes(70000, 'w'));
    builder.AddFile(builder.AddDirectory(u, u"below"), u"and a long name", Bytes(3000, 'l'));
    const size_t d = builder.AddDirectory(ImageBuilder::root, u"D");
    builder.AddFile(d, u"Long.File", Bytes(40000, 'f'));
    builder.AddFile(d, u"SHORT", Bytes(10, 's'));
    builder.AddDirectory(d, u"E");
    builder.AddFile(builder.AddDirectory(d, u"Closed"), u"inside", Bytes(500, 'i'));
    const auto digit = [](uint32_t value) { return static_cast<char16_t>(u'0' + value % 10); };
    // Single free slots: a longer name needs the others moved together.
    for (uint32_t i = 0; i < 40 && builder.FreeSlots(d) > 2; ++i) {
        builder.AddFile(d, {u'F', digit(i / 10), digit(i)}, Bytes(i % 3, 'f'));
        builder.AddDeletedSlots(d, 1);
    }
    const size_t many = builder.AddDirectory(ImageBuilder::root, u"MANY");
    for (uint32_t i = 0; i < 170; ++i) {
        builder.AddFile(many, {u'M', digit(i / 100), digit(i / 10), digit(i)});
    }
    return builder;
}

// What the workload starts with; the same each time.
const Start& StartOf(uint32_t fatType) {
    static std::map<uint32_t, Start> starts;
    const auto found = starts.find(fatType);
    if (found != starts.end()) {
        return found->second;
    }
    Start& start = starts.emplace(fatType, Start{BuildStart(fatType), {}}).first->second;
    for (const auto& [path, node] : FoldedTree(start.builder.disk)) {
        start.model.nodes[path] = {
            node.IsDirectory(), node.Attributes(), {node.content.begin(), node.content.end()}};
    }
    return start;
}

bool List(const char16_t* path) {
    FatFileInfo info{};
    const int handle = *path == 0 ? Fat_FindFirstRootFile(&info) : Fat_FindFirstFile(path, &info);
    while (Fat_FindNextFile(handle, &info)) {
    }
    return Fat_CloseFindHandle(handle);
}

bool Query(FatVolume* volume, int handle) {
    unsigned int size = 0, offset = 0;
    FatFileInfo info{}, copy{};
    SetCurrentFileSystem(volume);
    const bool done = Fat_GetFileSize(handle, &size) && !Fat_IsDir(handle) &&
                      Fat_SetFileOffset(handle, 1, 2) && Fat_GetFileOffset(handle, &offset) &&
                      Fat_GetFileAttribute(handle, &info);
    osMemCpy(&copy, &info, sizeof(copy));
    EXPECT_TRUE(!done || (offset == std::max(size, 1U) - 1 && copy.sizeLow == size));
    return done;
}

bool OpenMany() {
    char16_t path[] = u"MANY\\M000";
    bool done = true;
    for (uint32_t i = 0; i < 170; ++i) {
        path[6] = static_cast<char16_t>(u'0' + i / 100);
        path[7] = static_cast<char16_t>(u'0' + i / 10 % 10);
        path[8] = static_cast<char16_t>(u'0' + i % 10);
        done = Fat_CloseFile(Fat_OpenFile(path)) && done;
    }
    return done;
}

bool SetAttributes(int handle, uint32_t attributes) {
    FatFileInfo info{};
    const bool done = Fat_GetFileAttribute(handle, &info);
    info.attributes = attributes;
    return done && Fat_SetFileAttribute(handle, &info);
}

}  // namespace

const std::vector<Step>& Workload() {
    static const std::vector<Step> steps = [] {
        std::vector<Step> read;
        std::ifstream file(FATVOL_WORKLOAD);
        const auto widen = [](const std::string& text) {
            return text == "\\" ? u"" : std::u16string(text.begin(), text.end());
        };
        for (std::string line, path, target; std::getline(file, line);) {
            std::istringstream words(line);
            Step step;
            if (words >> step.op >> step.slot >> step.at >> step.size >> path >> target) {
                step.path = widen(path);
                step.target = widen(target);
                read.push_back(step);
            }
        }
        return read;
    }();
    return steps;
}

bool IsAtOrBelow(const std::u16string& path, const std::u16string& directory) {
    return path == directory || path.starts_with(directory + u"\\");
}

namespace {

bool Holds(std::span<const int16_t> expected, const uint8_t* bytes) {
    return std::equal(expected.begin(), expected.end(), bytes,
                      [](int16_t a, uint8_t b) { return a == unknown || a == b; });
}

}  // namespace

Tree FoldedTree(const MemoryDisk& disk) {
    Tree tree = ReadTree(disk, 1U << 20), folded;
    while (!tree.empty()) {
        auto node = tree.extract(tree.begin());
        node.key() = FoldAscii(node.key());
        folded.insert(std::move(node));
    }
    return folded;
}

std::string Difference(const ModelNode& expected, const Tree& actual, const std::u16string& path) {
    const auto found = actual.find(path);
    if (found == actual.end()) {
        return Printable(path) + " is missing\n";
    }
    const TreeNode& node = found->second;
    const bool isSame = node.IsDirectory() == expected.isDirectory &&
                        (node.Attributes() & 0x27) == (expected.attributes & 0x27) &&
                        node.content.size() == expected.content.size() &&
                        Holds(expected.content, node.content.data());
    return isSame ? "" : Printable(path) + " differs\n";
}

std::string Model::Difference(const Tree& actual) const {
    std::string text;
    for (const auto& [path, node] : nodes) {
        text += test::Difference(node, actual, path);
    }
    for (const auto& [path, node] : actual) {
        const bool isExpected =
            nodes.contains(path) || (maybe.contains(path) && node.IsDirectory());
        text += isExpected ? "" : Printable(path) + " is there\n";
    }
    return text;
}

Session::Session(uint32_t fatType)
    : disk(StartOf(fatType).builder.disk.sizeBytes),
      model(StartOf(fatType).model),
      sweepBytes(hugeBytes) {
    disk.Restore(StartOf(fatType).builder.disk.Snapshot());
    disk.beforeCall = [this](const Call& call) {
        return (IsWrite(call.kind) ? failWrites : failReads) && point.Fails() ? -5 : 0;
    };
    handles.fill(-1);
}

Session::~Session() {
    EXPECT_TRUE(!volume || Unmount());
    EXPECT_TRUE(Fat_LibTerminate());
    EXPECT_EQ(disk.counters.Breaches(), 0U);
}

bool Session::Start() {
    for (int tries = 0; !volume && tries < 2; ++tries) {
        Fat_LibInitialize();
        volume = Fat_Mount(new MemoryStorage(disk), nullptr);
    }
    return volume != nullptr;
}

bool Session::Flush() {
    const bool done = Fat_FlushVolume(volume);
    EXPECT_FALSE(done && isUntold);
    isUntold = false;
    return done;
}

bool Session::Unmount() {
    for (int& handle : handles) {
        EXPECT_EQ(Fat_CloseFile(handle), handle >= 0);
        handle = -1;
    }
    FatVolume* const gone = std::exchange(volume, nullptr);
    return Fat_Unmount(gone) || Fat_Unmount(gone);
}

bool Session::Run(const Step& step) {
    ++stepNumber;
    const bool isOpening = step.op == "open" || step.op == "create";
    const bool isTransfer = step.op == "read" || step.op == "write";
    if (!volume || (step.slot != noSlot && !isOpening && handles[step.slot] < 0) ||
        (isTransfer && model.nodes[PathOf(step)].content.size() < step.at + step.size)) {
        return false;
    }
    SCOPED_TRACE("step " + std::to_string(stepNumber) + ", " + step.op);
    for (uint32_t i = 0; step.op == "write" && i < step.size; ++i) {
        Buffer()[i] = static_cast<uint8_t>(stepNumber * 37U + i * 7 + i / 256);
    }
    const uint64_t failedBefore = point.failed;
    const bool done = Execute(step);
    if (step.op != "flush" && step.op != "remount") {
        isUntold = isUntold || (done && point.failed > failedBefore);
        Tell(step, done);
    }
    EXPECT_TRUE(!volume || IsLibrarySound());
    return done;
}

void Session::RunAll() {
    Start();
    for (const Step& step : Workload()) {
        Run(step);
    }
}

// By offset, or in two parts by position.
bool Session::Transfer(const Step& step, int handle) const {
    const bool isRead = step.op != "write", isByOffset = step.at % 2 == 0;
    const uint32_t size = step.op == "sweep" ? sweepBytes : step.size;
    const uint32_t half = isByOffset ? size : size / 2;
    unsigned int first = 0, second = 0;
    const auto next = [&](uint32_t from, uint32_t count, unsigned int* moved) {
        return isRead ? Fat_ReadFile(handle, count, Buffer() + from, moved)
                      : Fat_WriteFile(handle, count, Buffer() + from, moved);
    };
    const bool done = !isByOffset ? Fat_SetFileOffset(handle, step.at, 0) &&
                                        next(0, half, &first) && next(half, size - half, &second)
                      : isRead ? Fat_ReadFileEx(handle, step.at, size, Buffer(), &first)
                               : Fat_WriteFileEx(handle, step.at, size, Buffer(), &first);
    EXPECT_TRUE(!done || first + second == size);
    return done;
}

bool Session::Execute(const Step& step) {
    const char16_t *const path = step.path.c_str(), *const target = step.target.c_str();
    int& handle = handles[step.slot];
    const auto hold = [&](auto open) {
        Fat_CloseFile(handle);  // still open when a step between failed
        handle = open();
        return handle >= 0;
    };
    const std::map<std::string_view, std::function<bool()>> calls = {
        {"list", [&] { return List(path); }},
        {"open", [&] { return hold([&] { return Fat_OpenFile(path); }); }},
        {"create", [&] { return hold([&] { return Fat_CreateFile(path, step.size, 0x20); }); }},
        {"close", [&] { return Fat_CloseFile(std::exchange(handle, -1)); }},
        {"mkdir", [&] { return Fat_CreateDir(path, 0); }},
        {"read", [&] { return Transfer(step, handle); }},
        {"write", [&] { return Transfer(step, handle); }},
        {"resize", [&] { return Fat_SetFileSize(handle, step.size); }},
        {"rename", [&] { return Fat_RenameFile(path, target); }},
        {"move", [&] { return Fat_MoveFile(path, step.target.empty() ? nullptr : target); }},
        {"delete", [&] { return Fat_DeleteFile(path); }},
        {"attributes", [&] { return SetAttributes(handle, step.size); }},
        {"query", [&] { return Query(volume, handle); }},
        {"open-many", OpenMany},
        {"flush", [&] { return Flush(); }},
        {"remount", [&] { return Flush() && Unmount() && Start(); }},
        {"sweep", [&] {
             const int huge = Fat_OpenFile(u"HUGE");
             const bool done = Transfer(step, huge);
             return Fat_CloseFile(huge) && done;
         }}};
    return calls.at(step.op)();
}

// A path exists, and so do the directories above it.
void Session::Confirm(std::u16string path) {
    for (; !path.empty(); path = ParentOf(path)) {
        model.maybe.erase(path);
        model.nodes.try_emplace(path, ModelNode{true});
    }
}

// A path with all below it, and the handles there, has become another.
void Session::Carry(const std::u16string& from, const std::u16string& to) {
    const auto carried = [&](const std::u16string& path) {
        return IsAtOrBelow(path, from) ? to + path.substr(from.size()) : path;
    };
    Model before = std::exchange(model, {});
    for (auto& [path, node] : before.nodes) {
        model.nodes[carried(path)] = std::move(node);
    }
    for (const std::u16string& path : before.maybe) {
        model.maybe.insert(carried(path));
    }
    std::transform(paths.begin(), paths.end(), paths.begin(), carried);
}

// All that a call that failed may have changed is bytes of a write and directories on the way.
void Session::Tell(const Step& step, bool done) {
    const std::u16string path = FoldAscii(step.path), target = FoldAscii(step.target);
    const bool makes = step.op == "create" || step.op == "mkdir";
    for (std::u16string at = ParentOf(path); makes && !at.empty(); at = ParentOf(at)) {
        if (!model.nodes.contains(at)) {
            model.maybe.insert(at);
        }
    }
    if (step.op == "create" && done) {
        model.nodes[path] = {false, 0x20, std::vector(step.size, unknown)};
    }
    if (done) {
        Confirm(path);
    }
    if (done && (step.op == "create" || step.op == "open")) {
        paths[step.slot] = path;
    } else if (done && step.op == "rename") {
        Carry(path, JoinPath(ParentOf(path), target));
    } else if (done && step.op == "move") {
        Carry(path, JoinPath(target, path.substr(path.rfind(u'\\') + 1)));
    } else if (done && step.op == "delete") {
        model.nodes.erase(path);
    } else if (handles[step.slot] >= 0) {
        TellContent(step, done, model.nodes[PathOf(step)]);
    }
}

void Session::TellContent(const Step& step, bool done, ModelNode& node) {
    if (step.op == "write" && done) {
        std::copy_n(Buffer(), step.size, &node.content[step.at]);
    } else if (step.op == "write") {
        std::fill_n(&node.content[step.at], step.size, unknown);
    } else if (step.op == "resize" && done) {
        node.content.resize(step.size, unknown);
    } else if (step.op == "attributes" && done) {
        node.attributes = static_cast<uint8_t>(step.size);
    } else if (step.op == "read" && done) {
        EXPECT_TRUE(Holds(std::span(node.content).subspan(step.at, step.size), Buffer()));
    }
}

void Session::ExpectRecovered() {
    point.failAt = 0;
    ASSERT_TRUE(Start());
    FatVolumeInfo info{};
    info.size = sizeof(info);
    EXPECT_TRUE(Fat_GetVolumeInfo(volume, &info));
    refused = info.refusesChanges != 0;
    EXPECT_TRUE(Run({.op = "list", .path = u"Untouched"}));
    EXPECT_EQ(Run({.op = "create", .slot = 5, .size = 9000, .path = u"Afterwards"}), !refused);
    EXPECT_EQ(Run({.op = "write", .slot = 5, .size = 9000}), !refused);
    EXPECT_EQ(Flush() || Flush(), !refused);  // the first may tell of failures before
    ExpectUnmounted();
    EXPECT_TRUE(Start());
}

void Session::ExpectUnmounted() {
    EXPECT_TRUE(Unmount());
    const ImageReport report = CheckImage(disk);
    EXPECT_TRUE(report.faults.empty() && !report.areFatsDifferent) << report.Text();
    lostClusters = report.lostClusters;
    EXPECT_EQ(model.Difference(FoldedTree(disk)), "");
}

}  // namespace fatvol::test
