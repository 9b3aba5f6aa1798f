// The clock that rates are measured by: nanoseconds since the system started, the same in every
// process.
#pragma once

#include <cstdint>

inline constexpr std::int64_t kMillisecond = 1'000'000;  // in nanoseconds
inline constexpr std::int64_t kSecond = 1000 * kMillisecond;

// A rate is measured since the previous query when that is at most this long ago ...
inline constexpr std::int64_t kRecentQuery = 10 * kSecond;
// ... and otherwise over this time, which also is the shortest one that a rate is measured over.
inline constexpr std::int64_t kSampleTime = 250 * kMillisecond;

std::int64_t clock_now();

// Returns when the clock shows `time`, at once when it already does.
void clock_wait_until(std::int64_t time);

// Whether a query at `then` is recent enough to measure a rate at `now` from it.
inline bool clock_is_recent(std::int64_t then, std::int64_t now) {
    return then <= now && now - then <= kRecentQuery;
}

// Units per second, when `amount` units came in `nanoseconds`; at most `rate_max`.
std::uint64_t rate_per_second(std::uint64_t amount, std::int64_t nanoseconds,
                              std::uint64_t rate_max);
