// The check of the table of hosts: the layout of its records, seen from what stands in them.
#include <cinttypes>
#include <cstring>

#include "checks.h"
#include "hostsort.h"
#include "library.h"

namespace {

constexpr int kMostHosts = 65536;
constexpr std::uint64_t kMostBytes = UINT64_C(1) << 50;  // a petabyte
constexpr std::uint32_t kHighestRate = 2500000000U;      // bytes per second: 20 Gbit/s
constexpr std::uint32_t kMargin = 184;                   // bytes watched on either side

using NextCall = decltype(hostsort_get_next);

// A record with watched bytes around it.
struct Watched {
    unsigned char before[kMargin];
    HostRecord record;
    unsigned char after[kMargin];
};

void watched_fill(Watched& watched, unsigned char pattern) {
    std::memset(&watched, pattern, sizeof watched);
}

bool all_are(const void* bytes, std::size_t size, unsigned char pattern) {
    const auto* at = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < size; i++) {
        if (at[i] != pattern) return false;
    }
    return true;
}

struct Field {
    const char* name;
    std::size_t offset;
    std::size_t size;
};

constexpr Field kNumbers[] = {
    {"down_total", offsetof(HostRecord, down_total), sizeof(HostRecord::down_total)},
    {"up_total", offsetof(HostRecord, up_total), sizeof(HostRecord::up_total)},
    {"down_rate", offsetof(HostRecord, down_rate), sizeof(HostRecord::down_rate)},
    {"up_rate", offsetof(HostRecord, up_rate), sizeof(HostRecord::up_rate)},
};

// The same host read twice, over different bytes: a number that shows both was never written.
bool check_written(const Watched& one, unsigned char first, const Watched& two,
                   unsigned char second, int index) {
    for (const Field& field : kNumbers) {
        const char* a = reinterpret_cast<const char*>(&one.record) + field.offset;
        const char* b = reinterpret_cast<const char*>(&two.record) + field.offset;
        if (!all_are(a, field.size, first) || !all_are(b, field.size, second)) continue;
        say_wrong("host %d: %s (at byte %zu) is not filled in", index, field.name, field.offset);
        return false;
    }
    return true;
}

bool check_ip(const HostRecord& host, int index) {
    char shown[sizeof host.ip + 1];
    printable(shown, sizeof shown, host.ip, sizeof host.ip);
    if (!memchr(host.ip, '\0', sizeof host.ip)) {
        say_wrong("host %d: the address is not ended within its %zu bytes: \"%s\"", index,
                  sizeof host.ip, shown);
        return false;
    }
    if (is_address(host.ip)) return true;
    say_wrong("host %d: \"%s\" is no IPv4 address: the layout of the record may differ", index,
              shown);
    return false;
}

bool check_numbers(const HostRecord& host, int index) {
    if (host.down_total > kMostBytes || host.up_total > kMostBytes) {
        say_wrong("host %d (%s): totals of %" PRIu64 " and %" PRIu64
                  " bytes cannot be: the layout "
                  "of the record may differ",
                  index, host.ip, host.down_total, host.up_total);
        return false;
    }
    if (host.down_rate > kHighestRate || host.up_rate > kHighestRate) {
        say_wrong("host %d (%s): rates of %" PRIu32 " and %" PRIu32
                  " bytes per second cannot be: "
                  "the layout of the record may differ",
                  index, host.ip, host.down_rate, host.up_rate);
        return false;
    }
    const bool rate_alone =
        (host.down_rate && !host.down_total) || (host.up_rate && !host.up_total);
    if (!rate_alone) return true;
    say_wrong("host %d (%s): a rate without a total cannot be: the layout of the record may differ",
              index, host.ip);
    return false;
}

bool check_bounds(const Watched& watched, unsigned char pattern, int index) {
    if (all_are(watched.before, kMargin, pattern) && all_are(watched.after, kMargin, pattern))
        return true;
    say_wrong("host %d: the call writes beyond the record's %zu bytes", index, sizeof(HostRecord));
    return false;
}

bool check_host(NextCall* next, int index) {
    constexpr unsigned char kFirst = 0x5A;
    constexpr unsigned char kSecond = 0xA5;
    Watched one;
    Watched two;
    watched_fill(one, kFirst);
    watched_fill(two, kSecond);
    doing("reading host %d", index);
    const int result = next(&one.record, index);
    next(&two.record, index);
    if (result < 0 || all_are(&one.record, sizeof one.record, kFirst)) {
        say_wrong("host %d is counted, but cannot be read (the call gives %d)", index, result);
        return false;
    }
    return check_bounds(one, kFirst, index) && check_ip(one.record, index) &&
           check_written(one, kFirst, two, kSecond, index) && check_numbers(one.record, index);
}

// The host behind the last one: the table may shrink while cpectl walks it.
void check_behind(NextCall* next, int total) {
    Watched watched;
    watched_fill(watched, 0);
    doing("reading behind the last host");
    const int result = next(&watched.record, total + 1);
    watched.record.ip[sizeof watched.record.ip - 1] = '\0';
    if (result >= 0 && is_address(watched.record.ip))
        say_wrong("there is a host behind the last one (%d)", total + 1);
}

// True when all hosts are in order; says what is wrong with the first few that are not.
bool check_hosts(NextCall* next, int total) {
    constexpr int kMostSaid = 3;
    int wrong = 0;
    for (int i = 1; i <= total && wrong < kMostSaid; i++)
        wrong += check_host(next, i) ? 0 : 1;
    return wrong == 0;
}

void check_total(NextCall* next, int total) {
    if (total < 0 || total > kMostHosts)
        return say_wrong("hostsort_get_total_entry gives %d hosts", total);
    if (total == 0)
        return say_note(
            "no host is in the table: the layout of the records was not seen. Let a "
            "host send something and check again");
    if (check_hosts(next, total)) say_ok("%d hosts, all with plausible records", total);
    check_behind(next, total);
}

}  // namespace

void check_hostsort(const Options&) {
    const char* const calls[] = {"hostsort_info_sort", "hostsort_get_total_entry",
                                 "hostsort_get_next", nullptr};
    void* found[3];
    if (!library_open("libhostsort.so", calls, found)) return;

    doing("calling hostsort_info_sort(1, 0)");
    const int sorted = reinterpret_cast<decltype(hostsort_info_sort)*>(found[0])(1, 0);
    if (sorted < 0) say_wrong("hostsort_info_sort(1, 0) fails: it gives %d%s", sorted, cause());
    doing("calling hostsort_get_total_entry");
    const int total = reinterpret_cast<decltype(hostsort_get_total_entry)*>(found[1])();
    check_total(reinterpret_cast<NextCall*>(found[2]), total);
}
