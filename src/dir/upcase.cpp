#include "dir/upcase.h"

namespace fatvol {
namespace {

// Every `step`-th unit from `first` to `last` maps to itself plus `delta`.
struct UpcaseRange {
    char16_t first;
    char16_t last;
    int step;
    int delta;
};

constexpr UpcaseRange One(char16_t unit, char16_t upper) {
    return {unit, unit, 1, upper - unit};
}

// In ascending order. Scripts whose capitals and small letters alternate have step 2 and delta -1.
constexpr UpcaseRange Ranges[] = {
    // Latin
    {0x0061, 0x007A, 1, -32},
    One(0x00B5, 0x039C),
    {0x00E0, 0x00F6, 1, -32},
    {0x00F8, 0x00FE, 1, -32},
    One(0x00FF, 0x0178),
    {0x0101, 0x012F, 2, -1},
    One(0x0131, 0x0049),
    {0x0133, 0x0137, 2, -1},
    {0x013A, 0x0148, 2, -1},
    {0x014B, 0x0177, 2, -1},
    {0x017A, 0x017E, 2, -1},
    One(0x017F, 0x0053),
    {0x0183, 0x0185, 2, -1},
    One(0x0188, 0x0187),
    One(0x018C, 0x018B),
    One(0x0192, 0x0191),
    One(0x0195, 0x01F6),
    One(0x0199, 0x0198),
    One(0x019E, 0x0220),
    {0x01A1, 0x01A5, 2, -1},
    One(0x01A8, 0x01A7),
    One(0x01AD, 0x01AC),
    One(0x01B0, 0x01AF),
    {0x01B4, 0x01B6, 2, -1},
    One(0x01B9, 0x01B8),
    One(0x01BD, 0x01BC),
    One(0x01BF, 0x01F7),
    One(0x01C6, 0x01C5),  // to the title-case letter, which maps to itself
    One(0x01C9, 0x01C8),
    {0x01CC, 0x01DC, 2, -1},
    One(0x01DD, 0x018E),
    {0x01DF, 0x01EF, 2, -1},
    {0x01F3, 0x01F5, 2, -1},
    {0x01F9, 0x021F, 2, -1},
    {0x0223, 0x0233, 2, -1},
    // Phonetic letters with a capital
    One(0x0253, 0x0181),
    One(0x0254, 0x0186),
    {0x0256, 0x0257, 1, -205},
    One(0x0259, 0x018F),
    One(0x025B, 0x0190),
    One(0x0260, 0x0193),
    One(0x0263, 0x0194),
    One(0x0268, 0x0197),
    One(0x0269, 0x0196),
    One(0x026F, 0x019C),
    One(0x0272, 0x019D),
    One(0x0275, 0x019F),
    One(0x0280, 0x01A6),
    One(0x0283, 0x01A9),
    One(0x0288, 0x01AE),
    {0x028A, 0x028B, 1, -217},
    One(0x0292, 0x01B7),
    // Greek and Coptic
    One(0x03AC, 0x0386),
    {0x03AD, 0x03AF, 1, -37},
    {0x03B1, 0x03C1, 1, -32},
    One(0x03C2, 0x03A3),
    {0x03C3, 0x03CB, 1, -32},
    One(0x03CC, 0x038C),
    {0x03CD, 0x03CE, 1, -63},
    One(0x03D0, 0x0392),
    One(0x03D1, 0x0398),
    One(0x03D5, 0x03A6),
    One(0x03D6, 0x03A0),
    {0x03D9, 0x03EF, 2, -1},
    One(0x03F0, 0x039A),
    One(0x03F1, 0x03A1),
    One(0x03F2, 0x03F9),
    One(0x03F5, 0x0395),
    One(0x03F8, 0x03F7),
    One(0x03FB, 0x03FA),
    // Cyrillic
    {0x0430, 0x044F, 1, -32},
    {0x0450, 0x045F, 1, -80},
    {0x0461, 0x0481, 2, -1},
    {0x048B, 0x04BF, 2, -1},
    {0x04C2, 0x04CE, 2, -1},
    {0x04D1, 0x04F5, 2, -1},
    One(0x04F9, 0x04F8),
    {0x0501, 0x050F, 2, -1},
    // Armenian
    {0x0561, 0x0586, 1, -48},
    // Latin with further marks
    {0x1E01, 0x1E95, 2, -1},
    One(0x1E9B, 0x1E60),
    {0x1EA1, 0x1EF9, 2, -1},
    // Greek with breathings and accents: the capitals follow the small letters
    {0x1F00, 0x1F07, 1, 8},
    {0x1F10, 0x1F17, 1, 8},
    {0x1F20, 0x1F27, 1, 8},
    {0x1F30, 0x1F37, 1, 8},
    {0x1F40, 0x1F47, 1, 8},
    {0x1F51, 0x1F57, 2, 8},
    {0x1F60, 0x1F67, 1, 8},
    {0x1F70, 0x1F71, 1, 74},
    {0x1F72, 0x1F75, 1, 86},
    {0x1F76, 0x1F77, 1, 100},
    {0x1F78, 0x1F79, 1, 128},
    {0x1F7A, 0x1F7B, 1, 112},
    {0x1F7C, 0x1F7D, 1, 126},
    {0x1F80, 0x1F87, 1, 8},
    {0x1F90, 0x1F97, 1, 8},
    {0x1FA0, 0x1FA7, 1, 8},
    {0x1FB0, 0x1FB1, 1, 8},
    One(0x1FB3, 0x1FBC),
    One(0x1FBE, 0x0399),
    One(0x1FC3, 0x1FCC),
    {0x1FD0, 0x1FD1, 1, 8},
    {0x1FE0, 0x1FE1, 1, 8},
    One(0x1FE5, 0x1FEC),
    One(0x1FF3, 0x1FFC),
    // Full-width Latin
    {0xFF41, 0xFF5A, 1, -32},
};

constexpr UpcaseTable MakeTable() {
    UpcaseTable table;
    std::uint8_t lastPage = 0;
    for (const UpcaseRange& range : Ranges) {
        for (unsigned unit = range.first; unit <= range.last;
             unit += static_cast<unsigned>(range.step)) {
            std::uint8_t& page = table.pageOf[unit >> 8];
            if (page == 0) {
                page = ++lastPage;  // a page too many does not compile
            }
            table.delta[page][unit & 0xFF] = static_cast<std::uint16_t>(range.delta);
        }
    }
    return table;
}

}  // namespace

constexpr UpcaseTable Upcase = MakeTable();

bool EqualFolded(const char16_t* a, const char16_t* b, std::uint32_t units) {
    for (std::uint32_t i = 0; i < units; ++i) {
        if (a[i] != b[i] && FoldUnit(a[i]) != FoldUnit(b[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace fatvol
