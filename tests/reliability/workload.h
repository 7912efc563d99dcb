// One workload over every exported function, driven by the tests of failures and of cut power, with
// a plain model of what was reported as done.
#pragma once

#include <cstdlib>
#include <set>

#include "volume/fixture.h"

namespace fatvol::test {

// A line of workload.txt; paths are empty for none and for the root.
struct Step {
    std::string op;
    uint32_t at = 0, size = 0;  // bytes
    std::u16string path = {}, target = {};
};
const std::vector<Step>& Workload();

// Counts events of some kinds and makes the n-th fail, once or with all after it.
struct FailurePoint {
    bool reads = false, writes = false, allocations = false;
    bool onwards = false;
    uint64_t failAt = 0;  // 1 is the first; 0 none
    uint64_t seen = 0, failed = 0;

    bool Fails(bool isOfThem) {
        seen += isOfThem;
        const bool fails = isOfThem && failAt != 0 && (onwards ? seen >= failAt : seen == failAt);
        failed += fails;
        return fails;
    }
};
// That of the session that runs; allocations ask it as well.
inline FailurePoint failurePoint;

constexpr int16_t unknown = -1;  // a byte that a failed write covered, or behind a file's old end

struct ModelNode {
    bool isDirectory = false;
    uint8_t attributes = 0;
    std::vector<int16_t> content = {};
    int handle = -1;        // while the file is open
    bool isCertain = true;  // otherwise a failed call may have made the directory on its way
};

// By upper-case path.
using Model = std::map<std::u16string, ModelNode>;

// Whether a volume has a node as the model does.
bool IsThere(const Tree& actual, const std::u16string& path, const ModelNode& expected);
std::u16string ParentOf(const std::u16string& path);
bool IsAtOrBelow(const std::u16string& path, const std::u16string& directory);

// What a volume holds, by upper-case paths; of large files the first MiB.
Tree FoldedTree(const MemoryDisk& disk);

// A run of the workload on a volume of its own.
class Session {
public:
    explicit Session(uint32_t fatType, const FailurePoint& failure = {});
    ~Session();  // ends the library

    // Makes the library and the mount as far as they are missing.
    bool Start();
    // Runs a step and tells the model. False when the library said so; a step on a file that is not
    // open, or bytes that it has not, because something failed earlier, is passed over.
    bool Run(const Step& step);
    void RunAll();
    bool Unmount();
    // What must hold once storage or memory has recovered: no failure was kept from the caller; the
    // volume is usable unless it says otherwise; after a remount it is sound and holds what was
    // reported as done.
    void ExpectRecovered();
    // Unmounts, and what is on the volume must be sound and the model's.
    void ExpectUnmounted();

    MemoryDisk disk;
    FatVolume* volume = nullptr;
    Model model;
    uint64_t lostClusters = 0;  // after recovery
    bool refused = false;       // changes, after the failure

private:
    bool Execute(const Step& step);
    void Tell(const Step& step, bool done);
    void TellContent(const Step& step, bool done, ModelNode& node);
    void Carry(const std::u16string& from, const std::u16string& to);
    bool Flush();

    int handle = -1;  // of the file that the step is on, or has opened
    uint8_t stepNumber = 0;
    bool isUntold = false;  // a failed storage call has not reached the caller yet
};

// Calls `action` for each of the numbers 1 to `count` (FATVOL_RELIABILITY=full), or for about
// `sample` of them.
template <class Action>
void ForEvents(uint64_t count, uint64_t sample, Action action) {
    const bool isFull = std::getenv("FATVOL_RELIABILITY") != nullptr;
    const uint64_t some = sample == 0 ? count + 1 : std::max<uint64_t>(count / sample, 1);
    const uint64_t stride = isFull ? 1 : some;
    for (uint64_t n = 1 + count % stride; n <= count; n += stride) {
        action(n);
    }
}

}  // namespace fatvol::test
