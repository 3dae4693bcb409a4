#ifndef QX_SHARE_RSYNC_DESCRIPTOR_H
#define QX_SHARE_RSYNC_DESCRIPTOR_H

#include "host/descriptors.h"

namespace qxrsync {

/// As host/descriptors.h makes them; these throw Failure.
host::FdPair makePipe();
host::FdPair makeSocketPair();

/// Closes the writing side of a stream: the reader gets end of file even where the
/// descriptor is a socket that somebody else holds as well.
void endWriting(host::Fd& fd);

/// Opens /dev/null on every one of descriptors 0, 1 and 2 that is closed, so
/// that no descriptor made later can be taken for a standard stream.
void ensureStandardStreams();

/// Takes over an inherited descriptor: what is returned is a close-on-exec copy
/// above 2, and the inherited number is closed (a standard stream becomes
/// /dev/null). option and value are for the message of a descriptor that is not
/// open, or not open in the wanted direction. Throws Failure.
enum class Direction { kReading, kWriting };
host::Fd takeInherited(int fd, Direction direction, const char* option);

/// Sets or clears O_NONBLOCK. Nothing is done if the flag is as wanted.
void setNonBlocking(int fd, bool on);

/// What an ordinary user may ask for; room for a line per file between two looks.
inline constexpr int kPipeSize = 1 << 20;  // bytes

/// Makes a pipe hold size bytes if it holds less; anything else is left alone.
void enlargePipe(int fd, int size);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_DESCRIPTOR_H
