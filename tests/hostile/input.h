// The bytes that a scenario is decoded from. Any bytes are meaningful; after the end there are
// zeros.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace fatvol::test {

class Input {
public:
    explicit Input(std::span<const uint8_t> bytes) : left(bytes) {}

    bool IsEmpty() const { return left.empty(); }
    uint64_t Take(size_t byteCount) {
        uint64_t value = 0;
        for (size_t i = 0; i < byteCount; ++i) {
            value |= uint64_t{Byte()} << 8 * i;
        }
        return value;
    }
    uint8_t Byte() {
        const uint8_t byte = left.empty() ? uint8_t{0} : left[0];
        left = left.subspan(left.empty() ? 0 : 1);
        return byte;
    }
    size_t Below(size_t limit) { return Byte() % limit; }
    template <class T, size_t Count>
    const T& Pick(const T (&table)[Count]) {
        return table[Below(Count)];
    }
    std::span<const uint8_t> Span(size_t byteCount) {
        const auto taken = left.first(byteCount < left.size() ? byteCount : left.size());
        left = left.subspan(taken.size());
        return taken;
    }

private:
    std::span<const uint8_t> left;
};

}  // namespace fatvol::test
