// Sizes that are powers of two are used as shifts.
#pragma once

#include <cstdint>

namespace fatvol {

// log2 rounded down; 0 for 0 and 1.
constexpr std::uint32_t Log2Floor(std::uint32_t value) {
    std::uint32_t shift = 0;
    while (value > 1) {
        value >>= 1;
        ++shift;
    }
    return shift;
}

}  // namespace fatvol
