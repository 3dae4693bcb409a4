// An owned handle of liblxc.
#ifndef QX_NODE_LXC_HANDLE_H
#define QX_NODE_LXC_HANDLE_H

#include <lxc/lxccontainer.h>

#include <memory>
#include <string>

namespace node {

struct PutLxc {
  void operator()(lxc_container* lxc) const { lxc_container_put(lxc); }
};
using LxcHandle = std::unique_ptr<lxc_container, PutLxc>;

/// Throws Error (kNotRunning).
void requireRunning(unsigned id);

/// A handle of the container, which need not run. Throws Error.
LxcHandle openLxc(unsigned id);

}  // namespace node

#endif
