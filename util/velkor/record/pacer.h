// --max-rate: at most a given number of objects a second on average, kept
// smoothly: after each batch the scan sleeps until the batch's share of time
// has passed, instead of running at full speed and then pausing. Time lost
// to a slow file system is made up only up to half a second's objects, never
// by a long burst.
#pragma once

#include <cstdint>

namespace velkor {

// The clock the pacer reads and sleeps on; the tests give it one they set.
class PacerClock {
 public:
  virtual ~PacerClock() = default;
  virtual double now() = 0;                 // seconds, monotonic
  virtual void sleepFor(double seconds) = 0;
};

// CLOCK_MONOTONIC and nanosleep.
PacerClock& monotonicClock();

class Pacer {
 public:
  // `rate`: objects a second; 0 paces nothing.
  explicit Pacer(double rate, PacerClock& clock = monotonicClock());
  // `objects` more were done: sleeps until they are due.
  void done(uint64_t objects);
  double rate() const { return rate_; }

 private:
  double rate_;
  PacerClock& clock_;
  double due_;  // when the objects done so far are due at the rate
};

}  // namespace velkor
