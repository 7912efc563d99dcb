#include "dir/upcase.h"

#include <gtest/gtest.h>

#include <numeric>
#include <sstream>
#include <vector>

namespace fatvol {
namespace {

// What is added, and to which units or ranges of units, in hexadecimal; "--" takes every second
// one. Grouped by the change, where the code goes by the unit, so that a slip is not made twice.
const char* const Changes =
    "-32 0061-007A 00E0-00F6 00F8-00FE 03B1-03C1 03C3-03CB 0430-044F FF41-FF5A -1 0101--012F "
    "0133--0137 014B--0177 0183--0185 01A1--01A5 01DF--01EF 01F3--01F5 01F9--021F 0223--0233 "
    "03D9--03EF 0461--0481 048B--04BF 04D1--04F5 0501--050F 1E01--1E95 1EA1--1EF9 013A--0148 "
    "017A--017E 01B4--01B6 01CC--01DC 04C2--04CE 0188 018C 0192 0199 01A8 01AD 01B0 01B9 01BD "
    "01C6 01C9 03F8 03FB 04F9 +8 1F00-1F07 1F10-1F17 1F20-1F27 1F30-1F37 1F40-1F47 1F51--1F57 "
    "1F60-1F67 1F80-1F87 1F90-1F97 1FA0-1FA7 1FB0-1FB1 1FD0-1FD1 1FE0-1FE1 +9 1FB3 1FC3 1FF3 "
    "-205 0256-0257 -217 028A-028B -37 03AD-03AF -63 03CD-03CE -80 0450-045F -48 0561-0586 "
    "+74 1F70-1F71 +86 1F72-1F75 +100 1F76-1F77 +128 1F78-1F79 +112 1F7A-1F7B +126 1F7C-1F7D";

// Single units and their results.
const char* const Pairs =
    "00B5 039C  00FF 0178  0131 0049  017F 0053  0195 01F6  019E 0220  01BF 01F7  01DD 018E "
    "0253 0181  0254 0186  0259 018F  025B 0190  0260 0193  0263 0194  0268 0197  0269 0196 "
    "026F 019C  0272 019D  0275 019F  0280 01A6  0283 01A9  0288 01AE  0292 01B7  03AC 0386 "
    "03C2 03A3  03CC 038C  03D0 0392  03D1 0398  03D5 03A6  03D6 03A0  03F0 039A  03F1 03A1 "
    "03F2 03F9  03F5 0395  1E9B 1E60  1FBE 0399  1FE5 1FEC";

TEST(Upcase, MapsExactlyTheTable) {
    std::vector<int> expected(0x10000);
    std::iota(expected.begin(), expected.end(), 0);
    std::istringstream changes(Changes), pairs(Pairs);
    int change = 0;
    for (std::string text; changes >> text;) {
        if (text[0] == '+' || text[0] == '-') {
            change = std::stoi(text);
            continue;
        }
        const size_t step = text.find("--") == text.npos ? 1 : 2;
        const size_t last = std::stoul(text.substr(text.size() - 4), nullptr, 16);
        for (size_t unit = std::stoul(text, nullptr, 16); unit <= last; unit += step) {
            expected[unit] += change;
        }
    }
    for (int unit, upper; pairs >> std::hex >> unit >> upper;) {
        expected[static_cast<size_t>(unit)] = upper;
    }
    for (unsigned unit = 0; unit < 0x10000; ++unit) {
        const char16_t upper = UpcaseUnit(static_cast<char16_t>(unit));
        ASSERT_EQ(upper, expected[unit]) << std::hex << unit;
        ASSERT_EQ(UpcaseUnit(upper), upper) << std::hex << unit << ": keys fold once or twice";
    }
}

}  // namespace
}  // namespace fatvol
