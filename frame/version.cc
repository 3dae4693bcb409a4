// The version of the plug-in, for those who have loaded it.
#include "framework/api.h"

extern "C" QXL_API const char qxLinMigrateVersion[];
const char qxLinMigrateVersion[] = QX_VERSION;
