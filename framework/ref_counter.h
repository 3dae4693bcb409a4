// Intrusive reference counting, the ownership of every framework object.
#ifndef QX_FRAMEWORK_REF_COUNTER_H
#define QX_FRAMEWORK_REF_COUNTER_H

#include <atomic>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "framework/api.h"

namespace QXL {

/// Base of objects held by boost::intrusive_ptr. A new object has count 0; the
/// first pointer to it makes it 1; it deletes itself when the count returns to 0.
/// The count is atomic; whatever else the object holds is not guarded by it.
/// Always a virtual base, so that an object that is several things counts once.
class QXL_API QXLRefCounter {
 public:
  QXLRefCounter() = default;
  QXLRefCounter(const QXLRefCounter&) = delete;
  QXLRefCounter& operator=(const QXLRefCounter&) = delete;
  virtual ~QXLRefCounter() = default;

  friend void intrusive_ptr_add_ref(const QXLRefCounter* object) {
    object->references_.fetch_add(1, std::memory_order_relaxed);
  }
  friend void intrusive_ptr_release(const QXLRefCounter* object) {
    if (object->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete object;
  }

 private:
  mutable std::atomic<int> references_{0};
};

}  // namespace QXL

#endif
