// Linked into a copy of the library, so that the tools of two systems write the same time stamps.
#include "platform/clock.h"

namespace {

[[maybe_unused]] const bool isFixed = [] {
    fatvol::FixClockForTests(1710510331);  // 2024-03-15 13:45:31 UTC
    return true;
}();

}  // namespace
