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

TEST(NameKey, IsTheOneOfItsDefinitionInAnyCase) {
    const std::pair<std::u16string, NameKey> keys[] = {
        {u"", {0, 0, 0, 2}},
        {u"a", {0x41, 0x00410041, 0x00019280, 4}},
        {u"Files\\Report.txt", {0x5EE4FD84, 0x1AA029AF, 0x170E945C, 34}},
        {u"\u0436\u4E2D\U0001F600\u00FF", {0x09DEEE78, 0xF7A5A87F, 0x794C5A43, 12}},
        {std::u16string(127, u'\uFFFF'), {0x1000FFFF, 0xFFFFE040, 0xFFFEFFFF, 256}},
        {std::u16string(300, u'w'), {0xC9000007, 0x6A3FEFF2, 0xDD74297C, 602}}};
    for (const auto& [name, key] : keys) {
        NameHasher hasher;
        for (const char16_t unit : name) {
            hasher.Add(UpcaseUnit(unit));
        }
        EXPECT_EQ(hasher.Key(), key) << Printable(name);
        EXPECT_EQ(MakeNameKey(name.c_str()), key) << Printable(name);
    }
}

TEST(KeyTable, FindsNodesInTheOrderOfInsertion) {
    const NameKey keys[] = {{1, 1, 1, 4}, {8, 1, 1, 4}, {1, 8, 42, 4}, {1, 1, 1, 6}};
    KeyTable table(7);  // where they meet in one chain
    std::vector<KeyNode> nodes(40);
    std::vector<KeyNode*> inserted;
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
        const NameKey& key = keys[Below(rng, std::size(keys))];
        std::vector<KeyNode*> expected = inserted, found;
        std::erase_if(expected, [&](KeyNode* other) { return other->key != key; });
        FindKey(table, key, [&](KeyNode& match) { return found.push_back(&match), false; });
        ASSERT_EQ(found, expected) << i;
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
