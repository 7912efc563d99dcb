// What is left of a transfer between memory and a file.
#pragma once

#include <cstdint>

namespace fatvol {

struct RemainingTransfer {
    std::uint64_t offset;  // bytes, in the file
    std::uint32_t length;  // bytes
    std::uint8_t* memory;

    void Advance(std::uint32_t bytes) {
        offset += bytes;
        length -= bytes;
        memory += bytes;
    }
};

}  // namespace fatvol
