#include "volume/bitmap.h"

#include <algorithm>
#include <array>
#include <bit>

#include "storage/little_endian.h"

namespace fatvol {
namespace {

using ByteTable = std::array<std::uint8_t, 256>;

template <class Rule>
constexpr ByteTable MakeTable(Rule rule) {
    ByteTable table{};
    for (unsigned value = 0; value < 256; ++value) {
        table[value] = static_cast<std::uint8_t>(rule(static_cast<std::uint8_t>(value)));
    }
    return table;
}

constexpr int LongestClearRun(std::uint8_t value) {
    int longest = 0;
    int length = 0;
    for (int bit = 0; bit < 8; ++bit) {
        length = (value >> bit & 1) != 0 ? 0 : length + 1;
        longest = std::max(longest, length);
    }
    return longest;
}

constexpr ByteTable ZeroCount = MakeTable([](std::uint8_t v) { return 8 - std::popcount(v); });
constexpr ByteTable ClearLow = MakeTable([](std::uint8_t v) { return std::countr_zero(v); });
constexpr ByteTable ClearHigh = MakeTable([](std::uint8_t v) { return std::countl_zero(v); });
constexpr ByteTable ClearAnywhere = MakeTable(LongestClearRun);

constexpr std::uint8_t LowMask(std::uint32_t count) {
    return static_cast<std::uint8_t>((1u << count) - 1);
}

constexpr std::uint8_t HighFill(std::uint32_t count) {
    return static_cast<std::uint8_t>(0xFFu << count);
}

constexpr std::uint32_t WordLowMask(std::uint32_t count) {
    return count == 32 ? 0xFFFFFFFF : (1u << count) - 1;
}

// Bits beyond the last valid one never count as clear.
void FillTail(Bitmap& bitmap) {
    if (bitmap.bitCount % 8 != 0) {
        bitmap.bits[bitmap.byteCount - 1] |= HighFill(bitmap.bitCount % 8);
    }
}

// Applies `change` to the words that hold the bits of a range, with a mask of the bits concerned.
template <class Change>
void ForEachWord(Bitmap& bitmap, std::uint32_t first, std::uint32_t count, Change change) {
    std::uint8_t* word = bitmap.bits.get() + std::size_t{first / 32} * 4;
    std::uint32_t offset = first % 32;
    while (count > 0) {
        const std::uint32_t inWord = std::min(count, 32 - offset);
        StoreU32(word, change(LoadU32(word), WordLowMask(inWord) << offset));
        count -= inWord;
        offset = 0;
        word += 4;
    }
}

// One pass over the bytes of a bitmap for a run of `count` clear bits. The bits below the first
// one wanted count as set, and so does what lies before the first byte.
struct Pass {
    const Bitmap& bitmap;
    std::uint32_t count;
    std::uint32_t firstByte;
    std::uint8_t firstMask;
    std::uint32_t endBit;

    std::uint8_t Byte(std::uint32_t index) const {
        const std::uint8_t byte = bitmap.bits[index];
        return index == firstByte ? static_cast<std::uint8_t>(byte | firstMask) : byte;
    }
    bool Fits(std::uint32_t start) const { return std::uint64_t{start} + count <= bitmap.bitCount; }
};

std::uint32_t LowestRunWithin(std::uint8_t byte, std::uint32_t count) {
    std::uint32_t shift = 0;
    while ((byte & LowMask(count) << shift) != 0) {
        ++shift;
    }
    return shift;
}

// Up to 9 bits: within one byte or across two.
std::uint32_t FindShort(const Pass& pass) {
    std::uint8_t previous = 0xFF;
    for (std::uint32_t index = pass.firstByte; index * 8 < pass.endBit; ++index) {
        const std::uint8_t current = pass.Byte(index);
        const std::uint32_t before = ClearHigh[previous];
        if (before + ClearLow[current] >= pass.count && pass.Fits(index * 8 - before)) {
            return index * 8 - before;
        }
        if (ClearAnywhere[current] >= pass.count) {
            return index * 8 + LowestRunWithin(current, pass.count);
        }
        previous = current;
    }
    return NoBit;
}

// 10 to 14 bits: across two or three bytes.
std::uint32_t FindMedium(const Pass& pass) {
    std::uint8_t previous = 0xFF;
    std::uint8_t beforePrevious = 0xFF;
    for (std::uint32_t index = pass.firstByte; index * 8 < pass.endBit; ++index) {
        const std::uint8_t current = pass.Byte(index);
        const std::uint32_t position = index * 8;
        if (previous == 0) {
            const std::uint32_t before = ClearHigh[beforePrevious] + 8u;
            if (before + ClearLow[current] >= pass.count && pass.Fits(position - before)) {
                return position - before;
            }
        }
        const std::uint32_t before = ClearHigh[previous];
        if (before + ClearLow[current] >= pass.count && pass.Fits(position - before)) {
            return position - before;
        }
        beforePrevious = previous;
        previous = current;
    }
    return NoBit;
}

// 15 bits and more contain a whole zero byte: count those, and look at their two neighbours.
std::uint32_t FindLong(const Pass& pass) {
    std::uint64_t zeroBytes = 0;
    std::uint8_t head = 0xFF;
    std::uint32_t afterHead = pass.firstByte * 8;  // the bit after the head byte
    for (std::uint32_t index = pass.firstByte; index < pass.endBit / 8; ++index) {
        const std::uint8_t current = pass.Byte(index);
        const std::uint32_t start = afterHead - ClearHigh[head];
        if (zeroBytes >= (pass.count - 7) / 8 &&
            ClearHigh[head] + 8 * zeroBytes + ClearLow[current] >= pass.count && pass.Fits(start)) {
            return start;
        }
        if (current == 0) {
            ++zeroBytes;
        } else {
            zeroBytes = 0;
            head = current;
            afterHead = (index + 1) * 8;
        }
    }
    return NoBit;
}

std::uint32_t RunPass(const Bitmap& bitmap, std::uint32_t count, std::uint32_t firstBit,
                      std::uint32_t endBit) {
    const Pass pass{bitmap, count, firstBit / 8, LowMask(firstBit % 8), endBit};
    if (count <= 9) {
        return FindShort(pass);
    }
    return count <= 14 ? FindMedium(pass) : FindLong(pass);
}

// The first bit at or after `from` that is clear (or set), or bitCount. Looks at whole words, so
// words of the other kind are passed over at once.
std::uint32_t FindBit(const Bitmap& bitmap, std::uint32_t from, bool wantClear) {
    std::uint32_t mask = ~WordLowMask(from % 32);
    for (std::uint32_t base = from / 32 * 32; base < bitmap.bitCount; base += 32) {
        const std::uint32_t word = LoadU32(bitmap.bits.get() + base / 8);
        const std::uint32_t wanted = (wantClear ? ~word : word) & mask;
        if (wanted != 0) {
            const auto bit = static_cast<std::uint32_t>(std::countr_zero(wanted));
            return std::min(base + bit, bitmap.bitCount);
        }
        mask = 0xFFFFFFFF;
    }
    return bitmap.bitCount;
}

}  // namespace

void SetBits(Bitmap& bitmap, std::uint32_t first, std::uint32_t count) {
    ForEachWord(bitmap, first, count,
                [](std::uint32_t word, std::uint32_t mask) { return word | mask; });
}

void ClearBits(Bitmap& bitmap, std::uint32_t first, std::uint32_t count) {
    ForEachWord(bitmap, first, count,
                [](std::uint32_t word, std::uint32_t mask) { return word & ~mask; });
}

std::uint32_t FindClearBits(Bitmap& bitmap, std::uint32_t count, std::uint32_t hint) {
    FillTail(bitmap);
    if (hint >= bitmap.bitCount) {
        hint = 0;
    }
    const std::uint32_t found = RunPass(bitmap, count, hint, bitmap.byteCount * 8);
    if (found != NoBit || hint == 0) {
        return found;
    }
    // Again from the start, up to where a run that begins before the hint can end.
    const std::uint64_t end = (std::uint64_t{hint} + count + 6) & ~std::uint64_t{7};
    return RunPass(bitmap, count, 0,
                   static_cast<std::uint32_t>(std::min<std::uint64_t>(end, bitmap.bitCount)));
}

std::uint32_t FindNextClearRun(const Bitmap& bitmap, std::uint32_t from, std::uint32_t* start) {
    if (from >= bitmap.bitCount) {
        *start = from;
        return 0;
    }
    const std::uint32_t first = FindBit(bitmap, from, true);
    if (first == bitmap.bitCount) {
        return 0;
    }
    *start = first;
    return FindBit(bitmap, first, false) - first;
}

std::uint32_t CountClearBits(Bitmap& bitmap) {
    FillTail(bitmap);
    std::uint32_t count = 0;
    for (std::uint32_t index = 0; index < bitmap.byteCount; ++index) {
        count += ZeroCount[bitmap.bits[index]];
    }
    return count;
}

bool IsBitSet(const Bitmap& bitmap, std::uint32_t index) {
    return (bitmap.bits[index / 8] >> index % 8 & 1) != 0;
}

}  // namespace fatvol
