#pragma once
// Condition waits with a deadline on the steady clock, made so that
// ThreadSanitizer follows them.  libstdc++ turns a steady-clock wait into
// pthread_cond_clockwait, which ThreadSanitizer does not intercept: it then
// misses the mutex being taken again after the wait, and reports every access
// under that mutex as a race.  These wait on the system clock instead
// (pthread_cond_timedwait), in rounds of at most 50 ms each measured again on
// the steady clock, so the deadline stays a steady one; only a change of the
// wall clock in the middle of a round can lengthen that round.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace talvo {

// Waits until ready() holds or the deadline passes; answers ready().
template <typename Ready>
bool WaitUntilSteady(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                     std::chrono::steady_clock::time_point deadline, Ready ready)
{
    constexpr std::chrono::steady_clock::duration kLongestRound = std::chrono::milliseconds(50);
    while (!ready()) {
        const auto left = deadline - std::chrono::steady_clock::now();
        if (left <= std::chrono::steady_clock::duration::zero())
            return false;
        condition.wait_until(lock, std::chrono::system_clock::now() + std::min(left, kLongestRound));
    }
    return true;
}

template <typename Rep, typename Period, typename Ready>
bool WaitForSteady(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   std::chrono::duration<Rep, Period> timeout, Ready ready)
{
    return WaitUntilSteady(condition, lock,
                           std::chrono::steady_clock::now() +
                               std::chrono::duration_cast<std::chrono::steady_clock::duration>(timeout),
                           ready);
}

} // namespace talvo
