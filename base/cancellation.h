// Putting off a thread's cancellation. The library is built without exceptions: a cancelled
// thread runs no destructor of it, and would leave locks held, nodes open and blocks allocated.
#pragma once

#include <pthread.h>

namespace kzddl {

/// While it lives, a request to cancel the calling thread waits: no call in its scope acts on
/// one. Whatever holds a lock, a descriptor or memory where a call may be a cancellation point
/// (open, sleeps, output, functions of the host) stands in such a scope.
class CancellationPutOff {
 public:
  CancellationPutOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  CancellationPutOff(const CancellationPutOff &) = delete;
  CancellationPutOff &operator=(const CancellationPutOff &) = delete;
  ~CancellationPutOff() { pthread_setcancelstate(before_, &before_); }

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace kzddl
