// What ioprio_set(2) and ioprio_get(2) take. The kernel's own header, <linux/ioprio.h>, cannot
// be read by a C++ compiler in all of its versions.
#ifndef QX_HOST_IO_PRIORITY_H
#define QX_HOST_IO_PRIORITY_H

namespace host {

inline constexpr int kIoPriorityOfProcess = 1;  ///< IOPRIO_WHO_PROCESS
inline constexpr int kIoClassBestEffort = 2;    ///< IOPRIO_CLASS_BE
inline constexpr int kIoClassIdle = 3;          ///< IOPRIO_CLASS_IDLE

/// level: 0 is the most, 7 the least within its class.
constexpr int ioPriority(int ioClass, int level) { return ioClass << 13 | level; }

}  // namespace host

#endif
