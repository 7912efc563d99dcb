#include <time.h>

#include <clocale>
#include <cstdlib>
#include <cstring>

#include "environment.h"
#include "platform/locale_text.h"

// Where the build has compiled the locale fatvol_cp1252.
#ifndef FATVOL_TEST_LOCALE_DIR
#define FATVOL_TEST_LOCALE_DIR ""
#endif

namespace fatvol::test {

void UseTimeZone(const std::string& zone) {
    zone.empty() ? unsetenv("TZ") : setenv("TZ", zone.c_str(), 1);
    tzset();
}

bool UseCodePage(const std::string& codePage) {
    const char* const name = codePage == "UTF-8"    ? "C.UTF-8"
                             : codePage == "CP1252" ? "fatvol_cp1252"
                                                    : codePage.c_str();
    setenv("LOCPATH", FATVOL_TEST_LOCALE_DIR, 1);
    setenv("LC_ALL", name, 1);
    SelectEnvironmentLocale();
    return std::strcmp(std::setlocale(LC_CTYPE, nullptr), name) == 0;
}

}  // namespace fatvol::test
