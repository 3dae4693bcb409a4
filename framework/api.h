// Visibility of the framework's symbols. The plug-in is built with hidden
// visibility; everything it shares with the process that loads it is marked.
#ifndef QX_FRAMEWORK_API_H
#define QX_FRAMEWORK_API_H

#define QXL_API __attribute__((visibility("default")))

#endif
