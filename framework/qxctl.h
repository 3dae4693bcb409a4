/* The container host's status call: the first of the C libraries that a host
 * offers to the plug-in. The process that loads the plug-in provides it. */
#ifndef QX_FRAMEWORK_QXCTL_H
#define QX_FRAMEWORK_QXCTL_H

#ifdef __cplusplus
extern "C" {
#endif

/* Bits of qxctl_env_status_t.mask. */
#define QXCTL_STATUS_EXISTS 0x01u  /* private area and configuration file are both there */
#define QXCTL_STATUS_MOUNTED 0x02u /* the root is mounted */
#define QXCTL_STATUS_RUNNING 0x04u /* the container has an init process */

typedef struct qxctl_env_status {
  unsigned int mask; /* QXCTL_STATUS_ bits */
} qxctl_env_status_t;

/* Tells the state of one container.
 *
 * ctid    container id
 * status  receives the state; untouched on failure; owned by the caller
 * mask    which QXCTL_STATUS_ bits to find out; 255 asks for all that are known.
 *         Bits not asked for come back clear.
 *
 * Returns 0 when the state could be determined, also for a container that does
 * not exist (mask 0 then); -1 with errno set otherwise. Safe to call from any
 * thread: it reads files and keeps no state. */
int qxctl_get_env_status(unsigned int ctid, qxctl_env_status_t* status, int mask);

#ifdef __cplusplus
}
#endif
#endif
