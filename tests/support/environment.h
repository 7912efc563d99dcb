// What tests change in their process's environment: its time zone and its code page.
#pragma once

#include <string>

namespace fatvol::test {

// A zone as the TZ variable spells it out, for example "XST-5:30"; empty for the system's.
void UseTimeZone(const std::string& zone);

// Selects "C", "CP1252" or "UTF-8" for the bytes of short names. False when the system's runtime
// library has no such locale.
bool UseCodePage(const std::string& codePage);

}  // namespace fatvol::test
