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

// Says which of its virtual functions were called.
class TellingStorage : public CFatStorage {
public:
    explicit TellingStorage(std::string* told) : called(told) {}
    ~TellingStorage() override { *called += "destructor"; }
    int OpenDevice(void*) override { return Tell("OpenDevice"); }
    bool CloseDevice() override { return Tell("CloseDevice"); }
    bool IsDbrOk(void*) override { return Tell("IsDbrOk"); }
    unsigned int GetBytesPerSector(void*) override { return Tell("GetBytesPerSector"); }
    void PrepareDevice() override { Tell("PrepareDevice"); }

private:
    bool Tell(const std::string& name) {
        *called += name + ' ';
        return true;
    }

    std::string* called;
};

// Calls a slot as code of another compiler would, which the sanitizers rightly find odd.
#if defined(__clang__)
__attribute__((no_sanitize("function", "vptr")))
#endif
void CallSlot(CFatStorage* storage, std::size_t slot) {
    using Slot = void (*)(CFatStorage*, void*);
    (*reinterpret_cast<Slot**>(storage))[slot](storage, nullptr);
}

TEST(Layout, FieldsAndSlotsStandInTheirPlaces) {
    std::string called;
    auto* const s = new TellingStorage(&called);
    const auto offsets = [&](const auto&... fields) {
        const auto* start = reinterpret_cast<const char*>(s);
        return std::vector<std::ptrdiff_t>{(reinterpret_cast<const char*>(&fields) - start)...};
    };
    EXPECT_EQ(offsets(s->HostContext, s->DbrBuffer, s->SectorShift, s->BytesPerSector,
                      s->GetMpbProc, s->ReadBytesProc, s->WriteBytesProc, s->ReadBytesAlignedProc,
                      s->WriteBytesAlignedProc, s->ReadSectorsProc, s->WriteSectorsProc),
              (std::vector<std::ptrdiff_t>{8, 16, 24, 28, 32, 40, 48, 56, 64, 72, 80}));
    // The compiler's two destructors stand last; the second one frees the object as well.
    for (const std::size_t slot : {0U, 1U, 2U, 3U, 4U, 6U}) {
        CallSlot(s, slot);
    }
    EXPECT_EQ(called, "OpenDevice CloseDevice IsDbrOk GetBytesPerSector PrepareDevice destructor");
}

}  // namespace
}  // namespace fatvol
