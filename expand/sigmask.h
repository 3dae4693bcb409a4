#ifndef QX_EXPAND_SIGMASK_H
#define QX_EXPAND_SIGMASK_H

#include <signal.h>

#include <string>
#include <vector>

#include "expand/export.h"

namespace Expand {

/// Blocks and unblocks a set of signals for the calling thread, and at the end of
/// its life puts back the mask that it found when it was made. Use it on one
/// thread, and nest several only like scopes.
class EXPAND_API SigMask {
 public:
  explicit SigMask(const std::vector<int>& signals);
  explicit SigMask(const sigset_t& signals);
  ~SigMask();
  SigMask(const SigMask&) = delete;
  SigMask& operator=(const SigMask&) = delete;

  /// Both leave the other signals as they are.
  void block();
  void unblock();

  /// Puts back the mask found at construction, if block or unblock was called.
  void revert();

  /// For debugging: the names of the signals that are blocked now, and of those
  /// that the mask will go back to. Signals above 30 are not shown.
  std::string dump() const;

 private:
  void set(int how);

  bool changed_ = false;
  sigset_t signals_;
  sigset_t saved_;
};

}  // namespace Expand

#endif  // QX_EXPAND_SIGMASK_H
