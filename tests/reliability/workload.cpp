#include "workload.h"

#include <fstream>
#include <span>
#include <sstream>

#include "api/library_state.h"
#include "support/allocation_hook.h"

namespace fatvol::test {
namespace {

constexpr uint32_t hugeBytes = 68U << 20;  // the block cache holds 64 MiB

// One buffer for all transfers.
uint8_t* Buffer() {
    static const std::unique_ptr<uint8_t[]> buffer(new uint8_t[hugeBytes]);
    return buffer.get();
}

struct Start {
    ImageBuilder builder;
    Model model;
};

ImageBuilder BuildStart(uint32_t fatType) {
    // The FAT32 has five blocks: more than collect before they are written.
    const auto [sectorsPerCluster, clusterCount] = fatType == 12   ? std::pair(64U, 2600U)
                                                   : fatType == 16 ? std::pair(4U, 41000U)
                                                                   : std::pair(1U, 300000U);
    ImageBuilder builder({.fatType = fatType,
                          .sectorsPerCluster = sectorsPerCluster,
                          .clusterCount = clusterCount,
                          .rootEntryCount = 256});
    EntryOptions huge;  // in two pieces, and without bytes of its own
    huge.size = hugeBytes;
    const uint32_t clusters = hugeBytes / builder.geometry.clusterBytes;
    for (uint32_t i = 0; i < clusters; ++i) {
        huge.clusters.push_back(300 + i + (i < clusters / 2 ? 0 : 50));
    }
    builder.AddFile(ImageBuilder::root, u"HUGE", {}, huge);
    const size_t d = builder.AddDirectory(ImageBuilder::root, u"D");
    builder.AddFile(d, u"Long.File", Bytes(40000, 'f'));
    builder.AddFile(d, u"SHORT", Bytes(10, 's'));
    builder.AddDirectory(d, u"E");
    builder.AddFile(builder.AddDirectory(d, u"Closed"), u"inside", Bytes(500, 'i'));
    // Single free slots: a longer name needs the others moved together.
    for (char16_t letter = u'A'; letter <= u'Z' && builder.FreeSlots(d) > 2; ++letter) {
        builder.AddFile(d, {u'F', letter}, Bytes(letter % 3, 'f'));
        builder.AddDeletedSlots(d, 1);
    }
    Rng rng(fatType);
    FillRandomTree(builder, rng, 240, 3000);
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
        start.model[path] = {
            node.IsDirectory(), node.Attributes(), {node.content.begin(), node.content.end()}};
    }
    return start;
}

bool Query(int handle) {
    unsigned int size = 0, offset = 0;
    FatFileInfo info{};
    const bool done = Fat_GetFileSize(handle, &size) && Fat_SetFileOffset(handle, 1, 2) &&
                      Fat_GetFileOffset(handle, &offset) && Fat_GetFileAttribute(handle, &info);
    EXPECT_TRUE(!done ||
                (offset == std::max(size, 1U) - 1 && info.sizeLow == size && !Fat_IsDir(handle)));
    return done;
}

bool OpenAll(const Model& model) {
    bool done = true;
    for (const auto& [path, node] : model) {
        done = Fat_CloseFile(Fat_OpenFile(path.c_str())) && done;
    }
    return done;
}

bool SetAttributes(int handle, uint32_t attributes) {
    FatFileInfo info{};
    const bool done = Fat_GetFileAttribute(handle, &info);
    info.attributes = attributes;
    return done && Fat_SetFileAttribute(handle, &info);
}

// By offset, or in two parts by position.
bool Transfer(const Step& step, int handle) {
    const bool isRead = step.op != "write", isByOffset = step.at % 2 == 0;
    const uint32_t half = isByOffset ? step.size : step.size / 2;
    unsigned int first = 0, second = 0;
    const auto next = [&](uint32_t from, uint32_t count, unsigned int* moved) {
        return isRead ? Fat_ReadFile(handle, count, Buffer() + from, moved)
                      : Fat_WriteFile(handle, count, Buffer() + from, moved);
    };
    const bool done = !isByOffset
                          ? Fat_SetFileOffset(handle, step.at, 0) && next(0, half, &first) &&
                                next(half, step.size - half, &second)
                      : isRead ? Fat_ReadFileEx(handle, step.at, step.size, Buffer(), &first)
                               : Fat_WriteFileEx(handle, step.at, step.size, Buffer(), &first);
    EXPECT_TRUE(!done || first + second == step.size);
    return done;
}

bool Holds(std::span<const int16_t> expected, const uint8_t* bytes) {
    return std::equal(expected.begin(), expected.end(), bytes,
                      [](int16_t a, uint8_t b) { return a == unknown || a == b; });
}

std::u16string ReadPath(std::istream& words) {
    std::string text;
    words >> text;
    std::u16string path(text.begin(), text.end());
    if (const size_t asterisk = path.find(u'*'); asterisk != path.npos) {
        path.replace(asterisk, 1, 90, u'l');
    }
    return path == u"\\" ? u"" : path;
}

}  // namespace

const std::vector<Step>& Workload() {
    static const std::vector<Step> steps = [] {
        std::vector<Step> read;
        std::ifstream file(FATVOL_WORKLOAD);
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            Step step;
            if (words >> step.op >> step.at >> step.size) {
                step.path = ReadPath(words);
                step.target = ReadPath(words);
                read.push_back(step);
            }
        }
        return read;
    }();
    return steps;
}

std::u16string ParentOf(const std::u16string& path) {
    const size_t separator = path.rfind(u'\\');
    return separator == path.npos ? u"" : path.substr(0, separator);
}

bool IsAtOrBelow(const std::u16string& path, const std::u16string& directory) {
    return path == directory || path.starts_with(directory + u"\\");
}

Tree FoldedTree(const MemoryDisk& disk) {
    Tree folded;
    for (auto& [path, node] : ReadTree(disk, 1U << 20)) {
        folded[FoldAscii(path)] = std::move(node);
    }
    return folded;
}

bool IsThere(const Tree& actual, const std::u16string& path, const ModelNode& expected) {
    const auto found = actual.find(path);
    return found != actual.end() && found->second.IsDirectory() == expected.isDirectory &&
           (found->second.Attributes() & 0x27) == (expected.attributes & 0x27) &&
           found->second.content.size() == expected.content.size() &&
           Holds(expected.content, found->second.content.data());
}

Session::Session(uint32_t fatType, const FailurePoint& failure)
    : disk(StartOf(fatType).builder.disk.sizeBytes), model(StartOf(fatType).model) {
    disk.Restore(StartOf(fatType).builder.disk.Snapshot());
    disk.beforeCall = [](const Call& call) {
        const bool isOfThem = IsWrite(call.kind) ? failurePoint.writes : failurePoint.reads;
        return failurePoint.Fails(isOfThem) ? -5 : 0;
    };
    mayAllocate = [](size_t) { return !failurePoint.Fails(failurePoint.allocations); };
    failurePoint = failure;
}

Session::~Session() {
    failurePoint = {};
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
    for (auto& [path, node] : model) {
        EXPECT_EQ(Fat_CloseFile(node.handle), node.handle >= 0);
        node.handle = -1;
    }
    FatVolume* const gone = std::exchange(volume, nullptr);
    return Fat_Unmount(gone) || Fat_Unmount(gone);
}

bool Session::Run(const Step& step) {
    static const std::set<std::string> onOpenFiles = {"close",  "read",       "write",
                                                      "resize", "attributes", "query"};
    ++stepNumber;
    const auto found = model.find(FoldAscii(step.path));
    handle = found == model.end() ? -1 : found->second.handle;
    const bool isTransfer = step.op == "read" || step.op == "write";
    if (!volume || (onOpenFiles.contains(step.op) && handle < 0) ||
        (isTransfer && found->second.content.size() < step.at + step.size)) {
        return false;
    }
    SCOPED_TRACE("step " + std::to_string(stepNumber) + ", " + step.op);
    for (uint32_t i = 0; step.op == "write" && i < step.size; ++i) {
        Buffer()[i] = static_cast<uint8_t>(stepNumber * 37U + i * 7 + i / 256);
    }
    const uint64_t failedBefore = failurePoint.failed;
    const bool done = Execute(step);
    if (step.op != "flush" && step.op != "remount") {
        const bool hasFailed = failurePoint.failed > failedBefore && !failurePoint.allocations;
        isUntold = isUntold || (done && hasFailed);
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

bool Session::Execute(const Step& step) {
    const char16_t *const path = step.path.c_str(), *const target = step.target.c_str();
    const auto hold = [&](auto open) {
        Fat_CloseFile(handle);  // still open when a step between failed
        handle = open();
        return handle >= 0;
    };
    const std::map<std::string_view, std::function<bool()>> calls = {
        {"list", [&] { return !List(step.path).empty(); }},
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
        {"query", [&] { return Query(handle); }},
        {"open-all", [&] { return OpenAll(model); }},
        {"flush", [&] { return Flush(); }},
        {"remount", [&] { return Flush() && Unmount() && Start(); }},
        {"sweep", [&] {
             const File huge(u"HUGE");
             return Transfer({.op = "read", .size = hugeBytes}, huge.handle);
         }}};
    return calls.at(step.op)();
}

// A path with all below it has become another.
void Session::Carry(const std::u16string& from, const std::u16string& to) {
    for (auto& [path, node] : std::exchange(model, {})) {
        model[IsAtOrBelow(path, from) ? to + path.substr(from.size()) : path] = std::move(node);
    }
}

// All that a call that failed may have changed is bytes of a write and directories on the way.
void Session::Tell(const Step& step, bool done) {
    const std::u16string path = FoldAscii(step.path), target = FoldAscii(step.target);
    const bool makes = step.op == "create" || step.op == "mkdir";
    for (std::u16string at = ParentOf(path); makes && !at.empty(); at = ParentOf(at)) {
        const ModelNode made{.isDirectory = true, .isCertain = false};
        ModelNode& node = model.try_emplace(at, made).first->second;
        node.isCertain = node.isCertain || done;
    }
    if (done && makes) {
        const bool isDirectory = step.op == "mkdir";
        model[path] = {isDirectory, static_cast<uint8_t>(isDirectory ? 0 : 0x20),
                       std::vector(step.size, unknown)};
    }
    if (done && step.op == "rename") {
        Carry(path, JoinPath(ParentOf(path), target));
    } else if (done && step.op == "move") {
        Carry(path, JoinPath(target, path.substr(path.rfind(u'\\') + 1)));
    } else if (done && step.op == "delete") {
        model.erase(path);
    } else if (const auto found = model.find(path); found != model.end()) {
        found->second.handle = handle;
        TellContent(step, done, found->second);
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
    failurePoint.failAt = 0;
    ASSERT_TRUE(Start());
    FatVolumeInfo info{};
    info.size = sizeof(info);
    EXPECT_TRUE(Fat_GetVolumeInfo(volume, &info));
    refused = info.refusesChanges != 0;
    EXPECT_TRUE(Run({.op = "list", .path = u"D"}));
    EXPECT_EQ(Run({.op = "create", .size = 9000, .path = u"Afterwards"}), !refused);
    EXPECT_EQ(Run({.op = "write", .size = 9000, .path = u"Afterwards"}), !refused);
    EXPECT_EQ(Flush() || Flush(), !refused);  // the first may tell of failures before
    ExpectUnmounted();
    EXPECT_TRUE(Start());
}

void Session::ExpectUnmounted() {
    EXPECT_TRUE(Unmount());
    const ImageReport report = CheckImage(disk);
    EXPECT_TRUE(report.faults.empty() && !report.areFatsDifferent) << report.Text();
    lostClusters = report.lostClusters;
    const Tree tree = FoldedTree(disk);
    for (const auto& [path, node] : model) {
        const bool mayBeMissing = !node.isCertain && !tree.contains(path);
        EXPECT_TRUE(mayBeMissing || IsThere(tree, path, node)) << Printable(path);
    }
    for (const auto& [path, node] : tree) {
        EXPECT_TRUE(model.contains(path)) << Printable(path);
    }
}

}  // namespace fatvol::test
