// Marks what the plug-in library exports of the utility library. Everything
// else in this folder is compiled hidden.
#ifndef QX_EXPAND_EXPORT_H
#define QX_EXPAND_EXPORT_H

#define EXPAND_API __attribute__((visibility("default")))

#endif  // QX_EXPAND_EXPORT_H
