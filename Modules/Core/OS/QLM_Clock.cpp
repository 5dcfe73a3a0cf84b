#include "Core/OS/QLM_Clock.h"

#include <atomic>
#include <chrono>

namespace {

std::atomic<bool> isStepped{false};
std::atomic<double> steppedTime{0.0};

} // namespace

double QLM_Clock::Now() { return isStepped ? steppedTime.load() : static_cast<double>(RealNanoseconds()) * 1e-9; }
void QLM_Clock::UseSteppedTime() { isStepped = true; }
void QLM_Clock::UseRealTime() { isStepped = false; }
void QLM_Clock::Step(double seconds) { steppedTime.fetch_add(seconds); }

uint64_t QLM_Clock::RealNanoseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}
