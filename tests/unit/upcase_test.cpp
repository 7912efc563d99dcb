#include "dir/upcase.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace fatvol {
namespace {

// "first-last change" in hexadecimal and decimal; a second '-' takes every second unit. Grouped
// by the change, where the code goes by the unit, so that a slip is not made twice.
const char* const Changes =
    "0061-007A -32  00E0-00F6 -32  00F8-00FE -32  03B1-03C1 -32  03C3-03CB -32  0430-044F -32 "
    "FF41-FF5A -32  0101--012F -1  0133--0137 -1  014B--0177 -1  0183--0185 -1  01A1--01A5 -1 "
    "01DF--01EF -1  01F3--01F5 -1  01F9--021F -1  0223--0233 -1  03D9--03EF -1  0461--0481 -1 "
    "048B--04BF -1  04D1--04F5 -1  0501--050F -1  1E01--1E95 -1  1EA1--1EF9 -1  013A--0148 -1 "
    "017A--017E -1  01B4--01B6 -1  01CC--01DC -1  04C2--04CE -1  0188-0188 -1  018C-018C -1 "
    "0192-0192 -1  0199-0199 -1  01A8-01A8 -1  01AD-01AD -1  01B0-01B0 -1  01B9-01B9 -1 "
    "01BD-01BD -1  01C6-01C6 -1  01C9-01C9 -1  03F8-03F8 -1  03FB-03FB -1  04F9-04F9 -1 "
    "0256-0257 -205  028A-028B -217  03AD-03AF -37  03CD-03CE -63  0450-045F -80 "
    "0561-0586 -48  1F00-1F07 +8  1F10-1F17 +8  1F20-1F27 +8  1F30-1F37 +8  1F40-1F47 +8 "
    "1F51--1F57 +8  1F60-1F67 +8  1F80-1F87 +8  1F90-1F97 +8  1FA0-1FA7 +8  1FB0-1FB1 +8 "
    "1FD0-1FD1 +8  1FE0-1FE1 +8  1F70-1F71 +74  1F72-1F75 +86  1F76-1F77 +100  1F78-1F79 +128 "
    "1F7A-1F7B +112  1F7C-1F7D +126  1FB3-1FB3 +9  1FC3-1FC3 +9  1FF3-1FF3 +9";

// Single units and their results.
const char* const Pairs =
    "00B5 039C  00FF 0178  0131 0049  017F 0053  0195 01F6  019E 0220  01BF 01F7  01DD 018E "
    "0253 0181  0254 0186  0259 018F  025B 0190  0260 0193  0263 0194  0268 0197  0269 0196 "
    "026F 019C  0272 019D  0275 019F  0280 01A6  0283 01A9  0288 01AE  0292 01B7  03AC 0386 "
    "03C2 03A3  03CC 038C  03D0 0392  03D1 0398  03D5 03A6  03D6 03A0  03F0 039A  03F1 03A1 "
    "03F2 03F9  03F5 0395  1E9B 1E60  1FBE 0399  1FE5 1FEC";

std::vector<long> ExpectedMapping() {
    std::vector<long> mapping(0x10000);
    for (std::size_t unit = 0; unit < mapping.size(); ++unit) {
        mapping[unit] = static_cast<long>(unit);
    }
    std::istringstream changes(Changes), pairs(Pairs);
    for (std::string range, change; changes >> range >> change;) {
        const bool second = range[5] == '-';
        const auto last = std::stoul(range.substr(second ? 6 : 5), nullptr, 16);
        for (auto unit = std::stoul(range, nullptr, 16); unit <= last; unit += second ? 2 : 1) {
            mapping[unit] += std::stol(change);
        }
    }
    for (std::string unit, upper; pairs >> unit >> upper;) {
        mapping[std::stoul(unit, nullptr, 16)] = std::stol(upper, nullptr, 16);
    }
    return mapping;
}

TEST(Upcase, MapsExactlyTheTable) {
    const std::vector<long> expected = ExpectedMapping();
    for (unsigned unit = 0; unit < 0x10000; ++unit) {
        const char16_t upper = UpcaseUnit(static_cast<char16_t>(unit));
        ASSERT_EQ(upper, expected[unit]) << std::hex << unit;
        ASSERT_EQ(UpcaseUnit(upper), upper) << std::hex << unit << ": keys fold once or twice";
    }
}

}  // namespace
}  // namespace fatvol
