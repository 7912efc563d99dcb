#include "ops/name_key.h"

#include <bit>

#include "dir/upcase.h"

namespace fatvol {

void NameHasher::Add(char16_t upcasedUnit) {
    const std::uint32_t c = upcasedUnit;
    const std::uint32_t k = ++count;

    // The position enters as a signed 16-bit number: from unit 128 on its upper half is all ones.
    const auto position = static_cast<std::int16_t>(static_cast<std::uint16_t>(256 * k));
    const std::uint32_t w = static_cast<std::uint32_t>(std::int32_t{position}) | c;
    rotated = std::rotl(rotated, static_cast<int>(((w >> 2) ^ w) & 15)) ^ (w * w);

    const std::uint32_t t = 16 * a + c;
    a = t ^ ((t >> 24) & 0xF0);

    const std::uint32_t p = (c * k) & 0xFFFF;
    sum += p;
    mix += p ^ mix;
}

NameKey NameHasher::Key() const {
    return {a, (mix << 16) | sum, rotated ^ (rotated >> 16), 2 * (count + 1)};
}

NameKey MakeNameKey(const char16_t* string) {
    NameHasher hasher;
    for (; *string != 0; ++string) {
        hasher.Add(UpcaseUnit(*string));
    }
    return hasher.Key();
}

}  // namespace fatvol
