#include "entry.h"

namespace tool {

std::u16string FoldAscii(std::u16string_view text) {
    std::u16string name(text);
    for (char16_t& unit : name) {
        if (unit >= u'a' && unit <= u'z') {
            unit = static_cast<char16_t>(unit - u'a' + u'A');
        }
    }
    return name;
}

Entry EntryFromInfo(const FatFileInfo& info) {
    Entry entry;
    entry.longName = NameInField(info.longName);
    entry.shortName = NameInField(info.shortName);
    entry.attributes = info.attributes;
    entry.sizeBytes = info.sizeLow;
    entry.created = VolumeTimeFromHalves(info.creationTimeLow, info.creationTimeHigh);
    entry.accessed = VolumeTimeFromHalves(info.lastAccessTimeLow, info.lastAccessTimeHigh);
    entry.modified = VolumeTimeFromHalves(info.lastWriteTimeLow, info.lastWriteTimeHigh);
    return entry;
}

FatFileInfo InfoFromEntry(const Entry& entry) {
    const auto store = [](VolumeTime time, unsigned int* low, unsigned int* high) {
        *low = static_cast<unsigned int>(time);
        *high = static_cast<unsigned int>(time >> 32);
    };
    FatFileInfo info{};
    info.attributes = entry.attributes;
    store(entry.created, &info.creationTimeLow, &info.creationTimeHigh);
    store(entry.accessed, &info.lastAccessTimeLow, &info.lastAccessTimeHigh);
    store(entry.modified, &info.lastWriteTimeLow, &info.lastWriteTimeHigh);
    return info;
}

bool IsDotEntry(const Entry& entry) {
    return entry.longName.empty() && (entry.shortName == u"." || entry.shortName == u"..");
}

bool NameComesBefore(const Entry& left, const Entry& right) {
    const std::u16string leftFolded = FoldAscii(left.Name());
    const std::u16string rightFolded = FoldAscii(right.Name());
    return leftFolded != rightFolded ? leftFolded < rightFolded : left.Name() < right.Name();
}

bool IsSameName(std::u16string_view left, std::u16string_view right) {
    return FoldAscii(left) == FoldAscii(right);
}

std::string AttributeLetters(unsigned int attributes) {
    const auto letter = [=](AttributeBit bit, char ifSet) {
        return (attributes & bit) != 0 ? ifSet : '-';
    };
    return {letter(kDirectory, 'd'), letter(kReadOnly, 'r'), letter(kHidden, 'h'),
            letter(kSystem, 's'), letter(kArchive, 'a')};
}

}  // namespace tool
