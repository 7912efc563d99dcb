// What tests read and change of their process's environment: numbers, time zone and code page.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

namespace fatvol::test {

inline std::uint64_t NumberFromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

// A zone as the TZ variable spells it out, for example "XST-5:30"; empty for the system's.
void UseTimeZone(const std::string& zone);

// Selects "C", "CP1252" or "UTF-8" for the bytes of short names. False when the system's runtime
// library has no such locale.
bool UseCodePage(const std::string& codePage);

}  // namespace fatvol::test
