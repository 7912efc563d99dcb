#include "space_budget.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "listing.h"
#include "open_file.h"
#include "output.h"
#include "report.h"
#include "volume_path.h"

namespace tool {

namespace {

constexpr std::uint64_t kSlotBytes = 32;
constexpr std::uint64_t kMaxDirectorySlots = 65536;
constexpr std::uint64_t kDotSlots = 2;
constexpr std::size_t kUnitsPerSlot = 13;

bool IsPlainShortPart(std::u16string_view part, std::size_t maxUnits) {
    constexpr std::u16string_view kLongOnly = u"+,;=[] .";
    return part.size() <= maxUnits && std::all_of(part.begin(), part.end(), [=](char16_t unit) {
               return unit < 0x80 && kLongOnly.find(unit) == kLongOnly.npos;
           });
}

// Whether a name is stored as 8.3 alone.
bool IsPlainShortName(std::u16string_view name) {
    const std::size_t dot = name.rfind(u'.');
    const std::u16string_view base = name.substr(0, dot);
    const std::u16string_view extension =
        dot == name.npos ? std::u16string_view() : name.substr(dot + 1);
    return !base.empty() && IsPlainShortPart(base, 8) && IsPlainShortPart(extension, 3);
}

unsigned int SlotsOfLongName(std::size_t units) {
    return static_cast<unsigned int>(1 + (units + kUnitsPerSlot - 1) / kUnitsPerSlot);
}

}  // namespace

std::uint64_t MaxFileBytes(const FatVolumeInfo& info) {
    return (std::uint64_t{1} << 32) - info.bytesPerCluster;
}

unsigned int SlotsOfName(std::u16string_view name) {
    return IsPlainShortName(name) ? 1 : SlotsOfLongName(name.size());
}

SpaceBudget::SpaceBudget(MountedImage& image) : image_(image), info_(image.Info()) {}

void SpaceBudget::AddFile(std::uint64_t sizeBytes) {
    Take(Clusters(sizeBytes));
}

void SpaceBudget::RemoveFile(std::uint64_t sizeBytes) {
    givenClusters_ += Clusters(sizeBytes);
}

void SpaceBudget::AddDirectory(std::uint64_t slots) {
    Take(Clusters((kDotSlots + slots) * kSlotBytes));
    if (kDotSlots + slots > kMaxDirectorySlots) {
        directoryShortage_ =
            fmt::format("directory full: it ends at {} entries of 32 bytes", kMaxDirectorySlots);
    }
}

void SpaceBudget::AddEntries(const std::u16string& directory, std::uint64_t slots) {
    const Slots present = SlotsOf(directory);
    const std::uint64_t needed = present.used + slots;
    const bool isFixed = directory.empty() && image_.FixedRootSlots() != 0;
    const std::uint64_t limit = isFixed ? present.total : kMaxDirectorySlots;
    if (needed > limit && slots > 0) {
        directoryShortage_ =
            fmt::format("{} full: {} more entries of 32 bytes are needed, {} are free",
                        isFixed ? "root directory" : "directory " + DisplayPath(directory), slots,
                        limit - std::min(limit, present.used));
    } else if (needed > present.total) {
        Take(Clusters(needed * kSlotBytes) - Clusters(present.total * kSlotBytes));
    }
}

std::string SpaceBudget::ShortageOr(const std::string& fallback) const {
    if (!directoryShortage_.empty()) {
        return directoryShortage_;
    }
    if (missingClusters_ == 0) {
        return fallback;
    }
    const std::uint64_t bytes = missingClusters_ * info_.bytesPerCluster;
    return fmt::format("disk full: {} bytes ({}) are missing", bytes, HumanBytes(bytes));
}

void SpaceBudget::RequireEnough() const {
    if (const std::string shortage = ShortageOr(""); !shortage.empty()) {
        throw Failure{"", shortage};
    }
}

SpaceBudget::Slots SpaceBudget::SlotsOf(const std::u16string& directory) {
    if (directory.empty()) {
        return SlotsOfRoot();
    }
    Slots slots{0, 0};
    bool ended = false;
    OpenFile file(image_, directory);
    file.ReadToEnd([&](const unsigned char* bytes, std::size_t count) {
        for (std::size_t at = 0; at < count; at += kSlotBytes) {
            ended = ended || bytes[at] == 0;
            slots.used += !ended && bytes[at] != 0xE5 ? 1 : 0;
            ++slots.total;
        }
    });
    return slots;
}

// No path leads to the root directory, so its entries are known by their names alone.
SpaceBudget::Slots SpaceBudget::SlotsOfRoot() const {
    std::uint64_t used = info_.volumeLabel[0] != 0 ? 1 : 0;
    for (const Entry& entry : CollectEntries(u"")) {
        used += entry.longName.empty() ? 1 : SlotsOfLongName(entry.longName.size());
    }
    const std::uint64_t fixed = image_.FixedRootSlots();
    const std::uint64_t grown = Clusters(used * kSlotBytes) * info_.bytesPerCluster / kSlotBytes;
    return {used, fixed != 0 ? fixed : grown};
}

std::uint64_t SpaceBudget::Clusters(std::uint64_t bytes) const {
    return (bytes + info_.bytesPerCluster - 1) / info_.bytesPerCluster;
}

void SpaceBudget::Take(std::uint64_t clusters) {
    takenClusters_ += clusters;
    const std::uint64_t available = info_.freeClusters + givenClusters_;
    if (takenClusters_ > available) {
        missingClusters_ = std::max(missingClusters_, takenClusters_ - available);
    }
}

}  // namespace tool
