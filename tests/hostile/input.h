// The bytes that a scenario is decoded from: any bytes will do, and zeros follow them.
#pragma once

#include <cstdint>
#include <span>

namespace fatvol::test {

struct Input {
    std::span<const uint8_t> left;

    uint8_t Byte() { return left.empty() ? uint8_t{0} : Span(1)[0]; }
    size_t Below(size_t limit) { return Byte() % limit; }
    uint64_t Take(size_t byteCount) {
        uint64_t value = 0;
        for (size_t i = 0; i < byteCount; ++i) {
            value |= uint64_t{Byte()} << 8 * i;
        }
        return value;
    }
    template <class T, size_t Count>
    const T& Pick(const T (&table)[Count]) {
        return table[Below(Count)];
    }
    std::span<const uint8_t> Span(size_t byteCount) {
        const auto taken = left.first(byteCount < left.size() ? byteCount : left.size());
        left = left.subspan(taken.size());
        return taken;
    }
};

}  // namespace fatvol::test
