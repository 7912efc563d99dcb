// A bit array in which runs of clear bits are searched: the map of a volume's clusters and the map
// of a directory's slots. A set bit is in use.
//
// Invariants:
//  1. byteCount = (bitCount + 7) / 8.
//  2. bits holds byteCount rounded up to a multiple of 4 bytes, or is null while bitCount is 0.
#pragma once

#include <cstdint>
#include <memory>

namespace fatvol {

struct Bitmap {
    std::unique_ptr<std::uint8_t[]> bits;  // bit i is bit i % 8 of byte i / 8
    std::uint32_t bitCount = 0;
    std::uint32_t byteCount = 0;
};

inline constexpr std::uint32_t NoBit = 0xFFFFFFFF;

// The bytes to allocate for a number of bits: whole 32-bit words.
constexpr std::uint32_t BitmapAllocation(std::uint32_t bitCount) {
    return (bitCount / 32 + (bitCount % 32 != 0)) * 4;
}

// Sets or clears `count` bits from `first` on, which must lie within the bitmap.
void SetBits(Bitmap& bitmap, std::uint32_t first, std::uint32_t count);
void ClearBits(Bitmap& bitmap, std::uint32_t first, std::uint32_t count);

// The first bit of the first run of `count` (at least 1) clear bits met from bit `hint` upward,
// going on once from the start. A run that contains the hint counts from the hint on. NoBit when
// none is found, which for 15 bits and more is not quite the same as that there is none: runs that
// end with the last byte looked at can be missed. Callers have another way then.
std::uint32_t FindClearBits(Bitmap& bitmap, std::uint32_t count, std::uint32_t hint);

// The length of the first run of clear bits at or after `from`, with its first bit in `*start`; 0
// when there is none, and `*start` is then unchanged, or `from` when that lies beyond the bitmap.
std::uint32_t FindNextClearRun(const Bitmap& bitmap, std::uint32_t from, std::uint32_t* start);

// The number of clear bits.
std::uint32_t CountClearBits(Bitmap& bitmap);

// Whether bit `index`, which must lie within the bitmap, is set.
bool IsBitSet(const Bitmap& bitmap, std::uint32_t index);

}  // namespace fatvol
