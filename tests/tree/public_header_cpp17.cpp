// Compiled as C++17 with nothing before it: the public header stands on its own.
#include "fatvol.h"

static_assert(sizeof(FatFileInfo) == 592);
