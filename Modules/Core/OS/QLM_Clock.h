#pragma once
// The one source of time.

#include <cstdint>

/// The program's time in seconds. Under a script it stands still but for Step; else it is the machine's. Any thread.
class QLM_Clock {
  public:
    static double Now();
    /// From now on time only moves by Step.
    static void UseSteppedTime();
    static void UseRealTime();
    static void Step(double seconds);
    /// The machine's own high resolution counter in nanoseconds, for measurements and seeds.
    static uint64_t RealNanoseconds();
};

/// A stopwatch over QLM_Clock.
class QLM_Stopwatch {
  public:
    void Start() { start = QLM_Clock::Now(); started = true; }
    bool IsStarted() const { return started; }
    float GetElapsedSeconds() const { return started ? static_cast<float>(QLM_Clock::Now() - start) : 0.0f; }

  private:
    double start = 0.0;
    bool started = false;
};
