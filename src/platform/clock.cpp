#include "platform/clock.h"

namespace fatvol {
namespace {

std::optional<std::int64_t> fixedUnixSeconds;

}  // namespace

void FixClockForTests(std::optional<std::int64_t> unixSeconds) {
    fixedUnixSeconds = unixSeconds;
}

bool ReadLocalTime(LocalTime* out) {
    return LocalTimeOf(fixedUnixSeconds ? *fixedUnixSeconds : ReadUnixSeconds(), out);
}

}  // namespace fatvol
