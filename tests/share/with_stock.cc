// Links to the tests of how stock rsync is run: the engine has its own.
#include <cstdlib>

static const int with_stock = ::setenv("QX_RSYNC_ENGINE", "stock", 0);
