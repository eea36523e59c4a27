// Not part of any target: the thread-safety test (CMakeLists.txt) compiles it
// with clang and -Wthread-safety -Werror and expects each planted fault
// below to be refused, so that the lock contracts of common/threadSafety.h
// stay checked (the macros do not expand to nothing for clang, the locks
// are capabilities, their holders scoped ones).
#include <string>

#include "common/threadSafety.h"

namespace {

class Guarded {
 public:
  // A guarded field written without its lock.
  void unguardedWrite() { value_ = 1; }
  // A field behind a guarded pointer read without its lock.
  int unguardedRead() { return *pointer_; }
  // A REQUIRES member called without the lock.
  void callWithoutLock() { drawLocked(); }
  // An EXCLUDES member called with the lock held (the recursive lock is
  // never taken twice by the analysis's rules).
  void callWithLock() {
    KVF::Hold<KVF::RecursiveMutex> hold(screenLock_);
    draw();
  }
  // A lock taken and not given back on every path.
  void leaked(bool b) {
    if (b) mutex_.lock();
  }
  // The clean case: no diagnostic expected here.
  void clean() {
    KVF::MutexLock hold(mutex_);
    value_ = 2;
  }

 private:
  void drawLocked() REQUIRES(screenLock_) {}
  void draw() EXCLUDES(screenLock_) {}

  KVF::Mutex mutex_;
  KVF::RecursiveMutex screenLock_;
  int value_ GUARDED_BY(mutex_) = 0;
  int* pointer_ PT_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace

int main() {
  Guarded g;
  g.unguardedWrite();
  g.clean();
  g.callWithoutLock();
  g.callWithLock();
  g.leaked(false);
  return g.unguardedRead();
}
