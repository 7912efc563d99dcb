#include <time.h>

#include <clocale>
#include <cstdlib>

#include "environment.h"

namespace fatvol::test {

void UseTimeZone(const std::string& zone) {
    _putenv_s("TZ", zone.c_str());
    _tzset();
}

// The environment names no locale here, so the runtime library is asked directly. It has no UTF-8.
bool UseCodePage(const std::string& codePage) {
    const std::string name = codePage.starts_with("CP") ? "." + codePage.substr(2) : codePage;
    return std::setlocale(LC_ALL, name.c_str()) != nullptr;
}

}  // namespace fatvol::test
