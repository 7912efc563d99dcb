#include "volume/bitmap.h"

#include <gtest/gtest.h>

#include "support/random_tree.h"

namespace fatvol::test {
namespace {

using Model = std::vector<bool>;

// Where the first `count` clear bits in a row begin, from bit `from` on.
uint32_t LowestRun(const Model& model, uint32_t from, uint32_t count) {
    const auto begin = model.begin() + std::min<std::ptrdiff_t>(from, std::ssize(model));
    const auto found = std::search_n(begin, model.end(), count, false);
    return found == model.end() ? NoBit : static_cast<uint32_t>(found - model.begin());
}

// A search for 15 bits or more goes by whole bytes up to `endByte`. A run from the second bit of a
// byte to the end of another shows only in the byte after it.
bool IsSeen(uint32_t start, uint32_t count, uint32_t endByte) {
    const bool showsLate = start % 8 == 1 && (start + count) % 8 == 0;
    return start != NoBit && (count < 15 || (start + count - 1) / 8 + showsLate < endByte);
}

uint32_t ExpectedRun(const Model& model, uint32_t count, uint32_t hint) {
    const auto bitCount = static_cast<uint32_t>(model.size());
    hint = hint < bitCount ? hint : 0;
    const uint32_t above = LowestRun(model, hint, count), any = LowestRun(model, 0, count);
    if (IsSeen(above, count, (bitCount + 7) / 8)) {
        return above;
    }
    const uint32_t endByte = std::min((hint + count + 6) / 8, bitCount / 8);
    return hint != 0 && IsSeen(any, count, endByte) ? any : NoBit;
}

TEST(Bitmap, AgreesWithPlainTruthValues) {
    for (uint32_t sequence = 0; sequence < 30000; ++sequence) {
        SCOPED_TRACE(sequence);
        Rng rng(sequence);
        const auto below = [&](uint64_t n) { return static_cast<uint32_t>(Below(rng, n)); };
        const uint32_t bitCount = 1 + below(sequence % 4 == 0 ? 700 : 70);
        Bitmap bitmap{std::make_unique<uint8_t[]>(BitmapAllocation(bitCount)), bitCount,
                      (bitCount + 7) / 8};
        Model model(bitCount);
        for (uint32_t i = below(20); i > 0; --i) {
            const uint32_t first = below(bitCount), left = bitCount - first;
            const uint32_t count = below(std::min(left, i % 3 == 0 ? 200U : 20U) + 1);
            const bool isSet = below(4) != 0;
            (isSet ? SetBits : ClearBits)(bitmap, first, count);
            std::fill_n(model.begin() + first, count, isSet);
        }
        for (uint32_t i = 0; i < 20; ++i) {
            const uint32_t hint = below(bitCount + 3), count = 1 + below(i < 9 ? 40 : bitCount + 2);
            ASSERT_EQ(FindClearBits(bitmap, count, hint), ExpectedRun(model, count, hint))
                << count << " of " << bitCount << " bits from " << hint;
            const uint32_t first = LowestRun(model, hint, 1);
            const auto begin = model.begin() + std::min(first, bitCount);
            uint32_t start = 12345;
            ASSERT_EQ(FindNextClearRun(bitmap, hint, &start),
                      std::find(begin, model.end(), true) - begin);
            ASSERT_EQ(start, hint >= bitCount ? hint : first == NoBit ? 12345 : first);
        }
        for (uint32_t bit = 0; bit < bitCount; ++bit) {
            ASSERT_EQ(IsBitSet(bitmap, bit), model[bit]) << bit;
        }
        ASSERT_EQ(CountClearBits(bitmap), std::count(model.begin(), model.end(), false));
    }
}

}  // namespace
}  // namespace fatvol::test
