// Links to the tests of how stock rsync is run: the engine has its own. Those that hold for
// it as well run once more with QX_RSYNC_ENGINE=own in the environment (CMakeLists.txt).
#include <cstdlib>

static const int with_stock = ::setenv("QX_RSYNC_ENGINE", "stock", 0);
