// What names become: keys, short forms, checksums and normalised paths.
#include <gtest/gtest.h>

#include "api/path_argument.h"
#include "dir/entry_name.h"
#include "dir/upcase.h"
#include "ops/key_table.h"
#include "support/environment.h"
#include "support/random_tree.h"

namespace fatvol::test {
namespace {

// The hashes by their definition, one unit after another.
NameKey KeyByDefinition(const std::u16string& upcased) {
    uint64_t a = 0, s = 0, m = 0, r = 0;  // their low 32 bits count
    for (uint64_t k = 1; k <= upcased.size(); ++k) {
        const uint64_t c = upcased[k - 1], p = c * k % 65536;
        const uint64_t w = (k * 256 % 65536 + (k / 128 % 2 != 0 ? 0xFFFF0000 : 0)) | c;
        const uint64_t turn = (w / 4 ^ w) % 16, t = (16 * a + c) & 0xFFFFFFFF;
        r = ((r << turn | r >> (32 - turn)) ^ w * w) & 0xFFFFFFFF;
        a = t ^ (t >> 24 & 0xF0);
        s += p;
        m += p ^ m;
    }
    return {static_cast<uint32_t>(a), static_cast<uint32_t>(m << 16 | s),
            static_cast<uint32_t>(r ^ r >> 16), static_cast<uint32_t>(2 * upcased.size() + 2)};
}

TEST(NameKey, FollowsItsDefinitionForEveryPrefixInAnyCase) {
    for (uint32_t sequence = 0; sequence < 200; ++sequence) {
        Rng rng(sequence);
        std::u16string upcased, name;
        NameHasher hasher;
        for (uint64_t length = Below(rng, 400); name.size() < length;) {
            ASSERT_EQ(hasher.Key(), KeyByDefinition(upcased)) << sequence;
            const auto unit =
                static_cast<char16_t>(1 + Below(rng, sequence % 2 == 0 ? 0x7F : 0xFFFF));
            upcased += UpcaseUnit(unit);
            name += Below(rng, 2) == 0 ? unit : upcased.back();
            hasher.Add(upcased.back());
        }
        ASSERT_EQ(MakeNameKey(name.c_str()), KeyByDefinition(upcased)) << sequence;
    }
}

TEST(KeyTable, FindsNodesInTheOrderOfInsertion) {
    const NameKey keys[] = {{1, 1, 1, 4}, {8, 1, 1, 4}, {1, 8, 42, 4}, {1, 1, 1, 6}, {5, 6, 7, 8}};
    KeyTable table(7);
    std::vector<KeyNode> nodes(40);
    std::vector<KeyNode*> inserted;  // in this order
    Rng rng(1);
    for (int i = 0; i < 2000; ++i) {
        KeyNode& node = nodes[Below(rng, nodes.size())];
        if (std::erase(inserted, &node) != 0 || Below(rng, 2) == 0) {
            UnlinkKey(table, node);
        } else {
            node.key = keys[Below(rng, std::size(keys))];
            ASSERT_EQ(InsertKey(table, node), STATUS_SUCCESS);
            inserted.push_back(&node);
        }
        for (const NameKey& key : keys) {
            std::vector<KeyNode*> expected = inserted, found;
            std::erase_if(expected, [&](KeyNode* other) { return other->key != key; });
            FindKey(table, key, [&](KeyNode& match) { return found.push_back(&match), false; });
            ASSERT_EQ(found, expected) << i;
        }
    }
}

// The parts of a text between bars, each with the one after it.
std::vector<std::pair<std::u16string, std::u16string>> Pairs(const std::u16string& text) {
    std::vector<std::pair<std::u16string, std::u16string>> pairs;
    for (size_t at = 0; at < text.size();) {
        const size_t middle = text.find(u'|', at), end = text.find(u'|', middle + 1);
        pairs.emplace_back(text.substr(at, middle - at), text.substr(middle + 1, end - middle - 1));
        at = end + 1;
    }
    return pairs;
}

// Names with their short forms, one unit for each byte; an empty one for none.
void ExpectShortForms(const char* codePage, const std::u16string& namesAndForms) {
    if (!UseCodePage(codePage)) {
        ASSERT_STREQ(codePage, "UTF-8") << "only this may be missing";
        return;
    }
    for (const auto& [name, form] : Pairs(namesAndForms)) {
        const ParsedName parsed = ParseEntryName(name.c_str());
        const std::u16string actual(parsed.shortForm, std::end(parsed.shortForm));
        const bool isLong = form.empty() || *std::max_element(name.begin(), name.end()) > 0x7F;
        EXPECT_EQ(parsed.HasShortForm() ? actual : u"", form) << Printable(name);
        EXPECT_EQ(parsed.longLength, isLong ? name.size() : 0) << Printable(name);
        EXPECT_EQ(parsed.lastDot, static_cast<uint32_t>(name.rfind(u'.'))) << Printable(name);
    }
}

TEST(EntryName, HasAShortFormOrNot) {
    ExpectShortForms("CP1252",
                     u"readme.txt|README  TXT|abcdefgh.i|ABCDEFGHI  |a|A          |"
                     u"!#$%&'()|!#$%&'()   |-@^_`{}~.0|-@^_`{}~0  |\u00E9.txt|\u00C9       TXT|"
                     u"a.\u00FF|A       \u009F  |\u0101.txt||a.b.c||abcdefghi.txt||abc.defg||.txt||"
                     u"a.||ab c.txt||ab+c.txt||ab.t[t||a\u007F||a=b||");
    // A first byte 0xE5 would mean a deleted entry.
    ExpectShortForms("UTF-8",
                     u"\u5B57|\u0005\u00AD\u0097        |b.\u0101|B       \u00C4\u0080 |"
                     u"a\u5B57\u5B57\u5B57||");
    ExpectShortForms("C", u"\u00E9.txt||");
    const uint8_t names[] = "README  TXTLONGFI~1TXT";
    EXPECT_TRUE(ShortNameChecksum(names) == 0x73 && ShortNameChecksum(names + 11) == 0xD4);
}

TEST(Path, IsNormalisedOrRefused) {
    const std::u16string units259(259, u'x'), units189(189, u'y'), spaces(70, u' ');
    char16_t path[PathBufferUnits];
    for (const auto& [source, expected] :
         Pairs(u"\\Docs\\Report.txt|Docs\\Report.txt|  Docs \\  Report.txt.  |Docs\\Report.txt|"
               u" \\ a b.c. .\\d|a b.c\\d|Docs\\|Docs|Docs\\.|Docs|\u00E9\uFFFF|\u00E9\uFFFF||| ||"
               u"\\||\\ ||\\\\Docs||Docs\\\\Report||Docs\\ \\Report||.\\Docs||.||Docs\\..\\X||"
               u"a..b||C:\\Docs||Docs/Report.txt||" +
               units259 + u"|" + units259 + u"|" + units259 + u"x||" + units189 + spaces + u"|" +
               units189 + u"|" + units189 + spaces + u" \\X||")) {
        EXPECT_EQ(NormalizePath(source.c_str(), path) ? path : u"", expected) << Printable(source);
    }
    EXPECT_FALSE(NormalizePath(nullptr, path));
    const std::u16string_view refused = u"\"*/:<>?|\u007F";
    for (char16_t unit = 1; unit < 0x100; ++unit) {
        const char16_t source[] = {u'a', unit, u'b', 0};
        const bool isAccepted = unit >= 0x20 && refused.find(unit) == refused.npos;
        EXPECT_EQ(NormalizePath(source, path), isAccepted) << int{unit};
    }
}

}  // namespace
}  // namespace fatvol::test
