// The calling thread's kernel thread id.
#include <sys/syscall.h>
#include <unistd.h>

#include "base/base.h"

namespace base {

int GetTid() {
  // Cached per thread: the id of a thread never changes.
  thread_local const int tid = static_cast<int>(::syscall(SYS_gettid));
  return tid;
}

}  // namespace base
