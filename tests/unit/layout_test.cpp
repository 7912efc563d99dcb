// What a host's compiler and the library must agree on: offsets of fields and the order of slots.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "api/fatvol.h"

namespace fatvol {
namespace {

static_assert(sizeof(void*) == 8 && sizeof(wchar_t) >= sizeof(char16_t));
static_assert(sizeof(CVolumeStorage) == 88 && sizeof(CFatStorage) == sizeof(CVolumeStorage));

static_assert(sizeof(FatFileInfo) == 592 && alignof(FatFileInfo) == 4);
static_assert(offsetof(FatFileInfo, creationTimeLow) == 4);
static_assert(offsetof(FatFileInfo, lastAccessTimeLow) == 12);
static_assert(offsetof(FatFileInfo, lastWriteTimeLow) == 20);
static_assert(offsetof(FatFileInfo, sizeHigh) == 28 && offsetof(FatFileInfo, sizeLow) == 32);
static_assert(offsetof(FatFileInfo, longName) == 44 && offsetof(FatFileInfo, shortName) == 564);
static_assert(sizeof(FatVolumeInfo) == 52 && offsetof(FatVolumeInfo, volumeLabel) == 24);
static_assert(offsetof(FatVolumeInfo, refusesChanges) == 48);

// Says which of its virtual functions was called.
class TellingStorage : public CFatStorage {
public:
    explicit TellingStorage(std::string* told) : called(told) {}
    ~TellingStorage() override { *called = "destructor"; }
    int OpenDevice(void*) override { return Tell("OpenDevice"), 1; }
    bool CloseDevice() override { return Tell("CloseDevice"), true; }
    bool IsDbrOk(void*) override { return Tell("IsDbrOk"), true; }
    unsigned int GetBytesPerSector(void*) override { return Tell("GetBytesPerSector"), 1; }
    void PrepareDevice() override { Tell("PrepareDevice"); }

private:
    void Tell(const char* name) { *called = name; }

    std::string* called;
};

TEST(Layout, FieldsStandAtTheirOffsets) {
    std::string called;
    TellingStorage storage(&called);
    const auto* start = reinterpret_cast<const char*>(&storage);
    const auto offset = [&](const auto& field) {
        return reinterpret_cast<const char*>(&field) - start;
    };
    const std::vector<std::ptrdiff_t> offsets = {offset(storage.HostContext),
                                                 offset(storage.DbrBuffer),
                                                 offset(storage.SectorShift),
                                                 offset(storage.BytesPerSector),
                                                 offset(storage.GetMpbProc),
                                                 offset(storage.ReadBytesProc),
                                                 offset(storage.WriteBytesProc),
                                                 offset(storage.ReadBytesAlignedProc),
                                                 offset(storage.WriteBytesAlignedProc),
                                                 offset(storage.ReadSectorsProc),
                                                 offset(storage.WriteSectorsProc)};
    EXPECT_EQ(offsets, (std::vector<std::ptrdiff_t>{8, 16, 24, 28, 32, 40, 48, 56, 64, 72, 80}));
}

// Calls a slot as code of another compiler would, which the sanitizers rightly find odd.
#if defined(__clang__)
__attribute__((no_sanitize("function", "vptr")))
#endif
void CallSlot(CFatStorage* storage, std::size_t slot) {
    using Slot = void (*)(CFatStorage*, void*);
    (*reinterpret_cast<Slot**>(storage))[slot](storage, nullptr);
}

TEST(Layout, SlotsStandInTheirOrder) {
    std::string called;
    auto* const storage = new TellingStorage(&called);
    std::vector<std::string> order;
    for (std::size_t slot = 0; slot < 5; ++slot) {
        CallSlot(storage, slot);
        order.push_back(called);
    }
    EXPECT_EQ(order, (std::vector<std::string>{"OpenDevice", "CloseDevice", "IsDbrOk",
                                               "GetBytesPerSector", "PrepareDevice"}));
    // The compiler's two destructors follow; the second one frees the object as well.
    CallSlot(storage, 6);
    EXPECT_EQ(called, "destructor");
}

}  // namespace
}  // namespace fatvol
