// One workload over every exported function, driven by the tests of failing storage, failing memory
// and cut power, with a plain model of what was reported as done.
#pragma once

#include <cstdlib>
#include <set>

#include "volume/fixture.h"

namespace fatvol::test {

constexpr size_t noSlot = 6;

// A line of workload.txt; paths are empty for none and for the root.
struct Step {
    std::string op;
    size_t slot = noSlot;  // of the handle
    uint32_t at = 0;       // bytes
    uint32_t size = 0;
    std::u16string path = {}, target = {};
};
const std::vector<Step>& Workload();

// Counts events and makes the n-th fail, once or with all after it.
struct FailurePoint {
    uint64_t failAt = 0;  // 1 is the first; 0 none
    bool onwards = false;
    uint64_t seen = 0, failed = 0;

    bool Fails() {
        ++seen;
        const bool fails = failAt != 0 && (onwards ? seen >= failAt : seen == failAt);
        failed += fails;
        return fails;
    }
};

constexpr int16_t unknown = -1;  // a byte that a failed write covered, or behind a file's old end

struct ModelNode {
    bool isDirectory = false;
    uint8_t attributes = 0;
    std::vector<int16_t> content = {};
};

// Paths are upper case.
struct Model {
    std::map<std::u16string, ModelNode> nodes;
    std::set<std::u16string> maybe;  // directories that a failed call may have made on the way

    // What a volume has otherwise; empty when nothing.
    std::string Difference(const Tree& actual) const;
};
std::string Difference(const ModelNode& expected, const Tree& actual, const std::u16string& path);
bool IsAtOrBelow(const std::u16string& path, const std::u16string& directory);

// What a volume holds, by upper-case paths; of large files the first MiB.
Tree FoldedTree(const MemoryDisk& disk);

// A run of the workload on a volume of its own.
class Session {
public:
    explicit Session(uint32_t fatType);
    ~Session();  // ends the library

    // Makes the library and the mount as far as they are missing.
    bool Start();
    // Runs a step and tells the model. False when the library said so; a step on a handle or bytes
    // that an earlier failure left missing is passed over.
    bool Run(const Step& step);
    void RunAll();
    bool Unmount();
    // What must hold once storage or memory has recovered: no failure was kept from the caller; the
    // volume is usable unless it says otherwise; after a remount it is sound and holds what was
    // reported as done.
    void ExpectRecovered();
    // Unmounts, and what is on the volume must be sound and the model's.
    void ExpectUnmounted();
    const std::u16string& PathOf(const Step& step) const { return paths[step.slot]; }

    MemoryDisk disk;
    FatVolume* volume = nullptr;
    Model model;
    FailurePoint point;  // of storage calls
    bool failReads = false, failWrites = false;
    uint32_t sweepBytes;        // all of the huge file
    uint64_t lostClusters = 0;  // after recovery
    bool refused = false;       // changes, after the failure

private:
    bool Execute(const Step& step);
    bool Transfer(const Step& step, int handle) const;
    void Tell(const Step& step, bool done);
    void TellContent(const Step& step, bool done, ModelNode& node);
    void Confirm(std::u16string path);
    void Carry(const std::u16string& from, const std::u16string& to);
    bool Flush();

    std::array<int, noSlot + 1> handles;  // the last one is always missing
    std::array<std::u16string, noSlot + 1> paths;
    uint8_t stepNumber = 0;
    bool isUntold = false;  // a failed storage call has not reached the caller yet
};

// Calls `action` for each of the numbers 1 to `count` (FATVOL_RELIABILITY=full), or for about
// `sample` of them.
template <class Action>
void ForEvents(uint64_t count, uint64_t sample, Action action) {
    const bool isFull = std::getenv("FATVOL_RELIABILITY") != nullptr;
    const uint64_t stride = isFull        ? 1
                            : sample == 0 ? count + 1
                                          : std::max<uint64_t>(count / sample, 1);
    for (uint64_t n = 1 + count % stride; n <= count; n += stride) {
        action(n);
    }
}

}  // namespace fatvol::test
