// The table of hosts behind the gateway with their traffic, as libhostsort.so offers it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// One host, 72 bytes.
struct HostRecord {
    char ip[40];          // IPv4 address, dotted, NUL-terminated
    uint64_t down_total;  // bytes to the host
    uint64_t up_total;    // bytes from the host
    uint32_t down_rate;   // bytes per second
    uint32_t up_rate;     // bytes per second
    uint8_t reserved[8];
};

// Refreshes the table and sorts it by traffic, most first, for (1, 0), the only arguments in use.
// 0 on success, negative on failure.
int hostsort_info_sort(int key, int flag);

// The number of hosts in the table.
int hostsort_get_total_entry(void);

// Fills a caller's record (72 bytes) with host number `index`, counted from 1. 0 on success,
// negative for an index outside the table; the record is then left as it was.
int hostsort_get_next(void* record, int index);

#ifdef __cplusplus
}

static_assert(sizeof(HostRecord) == 72);
static_assert(offsetof(HostRecord, ip) == 0);
static_assert(offsetof(HostRecord, down_total) == 40);
static_assert(offsetof(HostRecord, up_total) == 48);
static_assert(offsetof(HostRecord, down_rate) == 56);
static_assert(offsetof(HostRecord, up_rate) == 60);
#endif
