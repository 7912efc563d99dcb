#include "random_tree.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace fatvol::test {

namespace {

template <typename T, size_t size>
const T& Pick(Rng& rng, const T (&choices)[size]) {
    return choices[Below(rng, size)];
}

// Clusters in runs of random length and order, to be taken from the end.
std::vector<uint32_t> ShuffledClusters(const Geometry& geometry, Rng& rng) {
    std::vector<std::pair<uint64_t, uint32_t>> keyed;
    uint64_t key = 0;
    for (uint32_t i = 0; i < std::min(geometry.clusterCount, 100000U); ++i) {
        key = Below(rng, 8) == 0 ? rng() : key;
        keyed.emplace_back(key, 2 + i);
    }
    std::sort(keyed.rbegin(), keyed.rend());
    std::vector<uint32_t> order;
    for (const auto& [place, cluster] : keyed) {
        order.push_back(cluster);
    }
    return order;
}

EntryOptions RandomOptions(Rng& rng) {
    EntryOptions options;
    options.attributes = Pick<uint8_t>(rng, {0x20, 0x20, 0x00, 0x21, 0x22, 0x26, 0x27});
    options.alwaysLong = Below(rng, 8) == 0;
    return options;
}

}  // namespace

std::vector<uint8_t> RandomBytes(Rng& rng, size_t count) {
    std::vector<uint8_t> bytes(count);
    for (size_t at = 0; at < count; at += 8) {
        const uint64_t word = rng();
        std::memcpy(&bytes[at], &word, std::min<size_t>(8, count - at));
    }
    return bytes;
}

std::u16string RandomName(Rng& rng, size_t maxUnits, Names names) {
    // Beyond ASCII, lower-case letters only: no two names may differ in nothing but case.
    static constexpr std::u16string_view alphabets[] = {
        u"ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-$", u"abcdefghijklmnopqrstuvwxyz0123456789",
        u"abcXYZ  +,;=[]&'()", u"\u00E0\u00E9\u00F1\u00FCabc\u03B1\u03B2\u03B3\u0436\u0448 ",
        u"\u4E2D\u6587\u65E5\u672C\U0001F600\U0001D11E"};
    const std::u16string_view alphabet = alphabets[Below(rng, names == Names::Ascii ? 3 : 5)];
    const uint64_t wild = Pick(rng, {uint64_t{1}, uint64_t{12}, uint64_t{13}, uint64_t{14},
                                     uint64_t{26}, uint64_t{250}, 1 + Below(rng, 60)});
    const uint64_t length = Below(rng, 2) == 0 ? 1 + Below(rng, 8) : wild;
    std::u16string name;
    while (name.size() < length) {
        const uint64_t at = Below(rng, alphabet.size());
        const bool isPair = (alphabet[at] & 0xF800) == 0xD800;
        name += isPair ? alphabet.substr(at & ~uint64_t{1}, 2) : alphabet.substr(at, 1);
    }
    name += Pick<std::u16string_view>(
        rng, {u"", u".TXT", u".C", u".html", names == Names::Ascii ? u".x" : u".\u00E9"});
    name.resize(std::min<size_t>({name.size(), maxUnits, 255}));
    if (name.back() == u' ' || name.back() == u'.' || (name.back() & 0xFC00) == 0xD800) {
        name.back() = u'z';
    }
    name.front() = name.front() == u' ' ? u'q' : name.front();
    return name;
}

uint32_t RandomSize(Rng& rng, uint32_t clusterBytes, uint64_t maximum) {
    const uint64_t base = Pick(rng, {uint64_t{0}, uint64_t{clusterBytes} * Below(rng, 20),
                                     uint64_t{262144}, uint64_t{524288}, Below(rng, maximum + 1)});
    const uint64_t size = base + Below(rng, 3);
    return static_cast<uint32_t>(std::min(size == 0 ? 0 : size - 1, maximum));
}

const Tree& FillRandomTree(ImageBuilder& builder, Rng& rng, uint32_t entryCount,
                           uint64_t maxFileBytes, Names names) {
    const uint32_t clusterBytes = builder.geometry.clusterBytes;
    // What an entry may take beside its content: slots for it, and a directory's cluster.
    const uint32_t reserve = 2 + 24 * 32 / clusterBytes + 1;
    builder.allocationOrder = ShuffledClusters(builder.geometry, rng);
    std::set<std::u16string> paths;  // upper case
    std::vector<size_t> parents = {ImageBuilder::root};
    for (uint32_t i = 0; i < entryCount && builder.FreeClusters() > 2 * reserve; ++i) {
        const size_t parent = parents[Below(rng, parents.size())];
        const std::u16string above = builder.Path(parent);
        const bool isFixed = builder.FirstCluster(parent) == 0;
        if (above.size() > maxPathUnits - 14 || (isFixed && builder.FreeSlots(parent) < 24)) {
            continue;
        }
        const std::u16string name = RandomName(rng, maxPathUnits - above.size() - 1, names);
        if (!paths.insert(FoldAscii(JoinPath(above, name))).second) {
            continue;
        }
        builder.AddDeletedSlots(parent, Below(rng, 6) == 0 ? 1 + rng() % 2 : 0);
        if (Below(rng, 4) == 0) {
            parents.push_back(builder.AddDirectory(parent, name, RandomOptions(rng)));
        } else {
            const uint64_t room = uint64_t{builder.FreeClusters() - 2 * reserve} * clusterBytes / 8;
            const size_t size = RandomSize(rng, clusterBytes, std::min(maxFileBytes, room));
            builder.AddFile(parent, name, RandomBytes(rng, size), RandomOptions(rng));
        }
    }
    builder.allocationOrder.clear();
    return builder.tree;
}

}  // namespace fatvol::test
