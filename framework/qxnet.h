/* The container host's network information: which interfaces and addresses a
 * machine has. The process that loads the plug-in provides it. */
#ifndef QX_FRAMEWORK_QXNET_H
#define QX_FRAMEWORK_QXNET_H

#ifdef __cplusplus
extern "C" {
#endif

/* What to report. Made by qxnet_get_simple_filter; opaque. */
typedef struct qxnet_filter qxnet_filter_t;

/* One address of one interface. */
typedef struct qxnet_address {
  struct qxnet_address* next;
  int family;      /* AF_INET or AF_INET6 */
  char text[64];   /* numeric address, no prefix */
  unsigned prefix; /* prefix length in bits */
} qxnet_address_t;

/* One interface. */
typedef struct qxnet_info {
  struct qxnet_info* next;
  char name[16];
  char mac[18];               /* "aa:bb:cc:dd:ee:ff", empty when it has none */
  unsigned flags;             /* IFF_ flags of <net/if.h> */
  int dhcp;                   /* non-zero when its addresses came by DHCP */
  qxnet_address_t* addresses; /* null when it has none */
} qxnet_info_t;

/* Makes a filter that lets every interface but loopback ones through.
 * Returns null when memory is short. Release with qxnet_release_filter. */
qxnet_filter_t* qxnet_get_simple_filter(void);
void qxnet_release_filter(qxnet_filter_t* filter);

/* Lists the interfaces that pass the filter, in the kernel's order.
 * Returns the list's head, null when nothing can be read or nothing passes
 * (errno tells which: 0 when nothing passes). Release with qxnet_release_info.
 * Safe to call from any thread. */
qxnet_info_t* qxnet_get_info(const qxnet_filter_t* filter);
void qxnet_release_info(qxnet_info_t* info);

#ifdef __cplusplus
}
#endif
#endif
