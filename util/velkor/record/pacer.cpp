#include "velkor/pacer.h"

#include <cerrno>
#include <ctime>

namespace velkor {

namespace {

constexpr double kMaxCredit = 0.5;  // seconds

class Monotonic : public PacerClock {
 public:
  double now() override {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + t.tv_nsec / 1e9;
  }
  void sleepFor(double seconds) override {
    struct timespec t;
    t.tv_sec = static_cast<time_t>(seconds);
    t.tv_nsec = static_cast<long>((seconds - static_cast<double>(t.tv_sec)) * 1e9);
    while (nanosleep(&t, &t) != 0 && errno == EINTR) {
    }
  }
};

}  // namespace

PacerClock& monotonicClock() {
  static Monotonic clock;
  return clock;
}

Pacer::Pacer(double rate, PacerClock& clock) : rate_(rate), clock_(clock), due_(clock.now()) {}

void Pacer::done(uint64_t objects) {
  if (rate_ <= 0) return;
  const double now = clock_.now();
  // Behind the rate (slow replies, a busy machine): at most half a second's
  // objects are made up, so the average holds without a long burst.
  if (due_ < now - kMaxCredit) due_ = now - kMaxCredit;
  due_ += static_cast<double>(objects) / rate_;
  if (due_ > now) clock_.sleepFor(due_ - now);
}

}  // namespace velkor
