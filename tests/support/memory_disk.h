// A volume in memory: sparse contents, a log of the calls made on it, and planned failures. The
// test owns it; it outlives the storage objects and mounts that work on it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace fatvol::test {

// In the order of the callback fields; the odd ones write.
enum class CallKind { ReadBytes, WriteBytes, ReadAligned, WriteAligned, ReadSectors, WriteSectors };

inline bool IsWrite(CallKind kind) {
    return static_cast<int>(kind) % 2 == 1;
}

// One storage call, in the callback's own units (bytes or sectors).
struct Call {
    CallKind kind;
    long long position;
    unsigned int count;
    bool operator==(const Call&) const = default;
};

// The bytes of one write that reached the disk.
struct DiskWrite {
    uint64_t positionBytes;
    std::vector<uint8_t> bytes;
};

// Which call fails: the `countdown`-th from now of the kinds chosen (1 is the next, 0 none), and
// with `onwards` every one after it.
struct FailurePlan {
    uint64_t countdown = 0;
    bool onwards = false;
    bool reads = true;
    bool writes = true;
    bool tornWrites = false;  // a failing write stores the first half of its bytes
    int status = -5;
};

struct DiskCounters {
    uint64_t bytesWritten = 0;
    uint64_t opens = 0;
    uint64_t closes = 0;
    uint64_t destroyed = 0;  // storage objects
    // Breaches of the contract by the caller; a sound run leaves all three at 0.
    uint64_t outsideAccesses = 0;     // not within the volume; these calls fail
    uint64_t misalignedAccesses = 0;  // aligned calls that are not whole clusters
    uint64_t unopenedAccesses = 0;    // before OpenDevice or after CloseDevice

    uint64_t Breaches() const { return outsideAccesses + misalignedAccesses + unopenedAccesses; }
};

class MemoryDisk {
public:
    static constexpr size_t pageBytes = 65536;
    using Page = std::array<uint8_t, pageBytes>;
    using Pages = std::unordered_map<uint64_t, std::shared_ptr<Page>>;

    // Bytes never written read as `fill`.
    explicit MemoryDisk(uint64_t size, uint8_t fill = 0) : sizeBytes(size), fillByte(fill) {}
    virtual ~MemoryDisk() = default;

    // Contents. Ranges outside the disk throw.
    void Read(uint64_t positionBytes, void* buffer, uint64_t count) const;
    std::vector<uint8_t> Read(uint64_t positionBytes, uint64_t count) const;
    void Write(uint64_t positionBytes, const void* data, uint64_t count);
    void Fill(uint64_t positionBytes, uint64_t count, uint8_t value);  // cheap for any count

    // The contents at this moment; pages are shared until one side writes to them.
    Pages Snapshot() const { return pages; }
    void Restore(const Pages& contents) { pages = contents; }

    // An image file for other tools; unwritten space becomes a hole. Throws std::runtime_error.
    void Save(const std::string& path) const;

    // What the storage's callbacks do.
    virtual int Transfer(const Call& call, unsigned char* buffer, unsigned int sectorBytes);

    const uint64_t sizeBytes;
    const uint8_t fillByte;
    DiskCounters counters;
    bool keepCalls = false;
    std::vector<Call> calls;
    bool keepWrites = false;
    std::vector<DiskWrite> writes;

    FailurePlan failure;
    std::function<int(const Call&)> beforeCall;  // of each transfer; a negative result fails it
    int successStatus = 0;                       // any value from 0 up means success
    int openResult = 0;
    void* openParameter = nullptr;  // as OpenDevice received it

    // When clusterBytes is set, aligned calls must be whole clusters counted from dataPosition.
    uint64_t dataPosition = 0;
    uint64_t clusterBytes = 0;

private:
    int PlannedStatus(const Call& call);
    Page& WritablePage(uint64_t index);

    Pages pages;
};

}  // namespace fatvol::test
