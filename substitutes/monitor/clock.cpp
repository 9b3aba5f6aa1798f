// The clock that rates are measured by; see clock.h.
#include "monitor/clock.h"

#include <errno.h>
#include <time.h>

std::int64_t clock_now() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::int64_t>(time.tv_sec) * kSecond + time.tv_nsec;
}

void clock_wait_until(std::int64_t time) {
    timespec until = {};
    until.tv_sec = static_cast<time_t>(time / kSecond);
    until.tv_nsec = static_cast<decltype(until.tv_nsec)>(time % kSecond);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

std::uint64_t rate_per_second(std::uint64_t amount, std::int64_t nanoseconds,
                              std::uint64_t rate_max) {
    constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
    const std::int64_t microseconds = nanoseconds / 1000;
    if (microseconds <= 0) return 0;
    // What no link can move within the times measured here, and would not fit the product below.
    if (amount > UINT64_MAX / kMicrosecondsPerSecond) return rate_max;
    const std::uint64_t rate =
        amount * kMicrosecondsPerSecond / static_cast<std::uint64_t>(microseconds);
    return rate < rate_max ? rate : rate_max;
}
