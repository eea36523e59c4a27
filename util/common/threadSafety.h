// Lock contracts the compiler checks: Clang's thread-safety attributes
// (built with -Wthread-safety) behind macros that are empty for other
// compilers, and the two locks the program and the simulator use, declared as
// capabilities so the analysis knows when they are held.
//
//   Mutex mutex_;
//   std::vector<Rule> rules_ GUARDED_BY(mutex_);     // read or written only with mutex_ held
//   void drawLocked() REQUIRES(mutex_);              // the caller holds mutex_
//   void draw() EXCLUDES(mutex_);                    // takes mutex_ itself
//   { MutexLock hold(mutex_); rules_.clear(); }
#pragma once

#include <pthread.h>

#include <mutex>

#if defined(__clang__)
#define KVF_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KVF_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) KVF_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY KVF_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) KVF_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) KVF_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) KVF_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) KVF_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) KVF_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KVF_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS KVF_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace KVF {

// std::mutex as a capability.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { m_.lock(); }
  void unlock() RELEASE() { m_.unlock(); }

 private:
  std::mutex m_;
};

// A recursive pthread mutex as a capability. The analysis counts no depth:
// code that holds it calls the REQUIRES forms of its own members rather than
// taking it again. native() is for code that must reach it outside the
// analysis (a cancellation cleanup handler, a signal handler's trylock).
class CAPABILITY("mutex") RecursiveMutex {
 public:
  RecursiveMutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }
  ~RecursiveMutex() { pthread_mutex_destroy(&m_); }
  RecursiveMutex(const RecursiveMutex&) = delete;
  RecursiveMutex& operator=(const RecursiveMutex&) = delete;

  void lock() ACQUIRE() { pthread_mutex_lock(&m_); }
  void unlock() RELEASE() { pthread_mutex_unlock(&m_); }
  pthread_mutex_t* native() { return &m_; }

 private:
  pthread_mutex_t m_;
};

// Holds a Mutex or a RecursiveMutex for a scope.
template <class M>
class SCOPED_CAPABILITY Hold {
 public:
  explicit Hold(M& m) ACQUIRE(m) : m_(m) { m_.lock(); }
  ~Hold() RELEASE() { m_.unlock(); }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  M& m_;
};

using MutexLock = Hold<Mutex>;

}  // namespace KVF
