// libhostsort.so for a stock Linux: the hosts behind the LAN device, from the kernel's neighbours,
// and their traffic, from the accounting of the flows that it tracks.
#pragma GCC visibility push(default)
#include "hostsort.h"
#pragma GCC visibility pop

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <stdlib.h>
#include <string.h>

#include "hostsort/tables.h"
#include "hostsort/totals.h"
#include "monitor/clock.h"
#include "monitor/neighbours.h"

// The only arguments in use: by traffic, most first.
static constexpr int kSortByTraffic = 1;
static constexpr int kSortFlag = 0;

// A host as it is handed out.
struct Row {
    std::uint32_t address;  // in network order
    std::uint32_t down_rate;
    std::uint32_t up_rate;
    std::uint64_t down;
    std::uint64_t up;
};

static Row rows[kHostMax];
static std::size_t row_count;

static std::uint32_t lan_device() {
    const char* name = secure_getenv("CPECTL_LAN_DEV");
    return if_nametoindex(name && *name ? name : "eth0.5");
}

static bool lan_neighbours_read(std::uint32_t device, NeighbourList& neighbours) {
    mnl_socket* socket = netlink_open(NETLINK_ROUTE);
    if (!socket) return false;
    neighbours.device = device;
    neighbours.count_max = kHostMax;
    const bool read = neighbours_read(socket, neighbours);
    mnl_socket_close(socket);
    return read;
}

// Puts the hosts that are present into the table. False when the kernel does not tell them.
static bool hosts_fill() {
    hosts_clear();
    flows_clear();
    const std::uint32_t device = lan_device();
    if (device == 0) return false;
    NeighbourList neighbours = {};
    const bool read = lan_neighbours_read(device, neighbours);
    for (std::size_t i = 0; i < neighbours.count; i++) {
        Host* host = host_find_or_add(neighbours.list[i].address);
        if (host) host->is_present = 1;
    }
    free(neighbours.list);
    return read;
}

static std::uint32_t byte_rate(std::uint64_t before, std::uint64_t now, std::int64_t duration) {
    if (now <= before) return 0;
    return static_cast<std::uint32_t>(rate_per_second(now - before, duration, UINT32_MAX));
}

static void rows_fill(std::int64_t duration) {
    row_count = 0;
    for (const Host& host : hosts_all()) {
        if (!host.is_present) continue;
        Row& row = rows[row_count++];
        row.address = host.address;
        row.down = host.down;
        row.up = host.up;
        row.down_rate = byte_rate(host.down_before, host.down, duration);
        row.up_rate = byte_rate(host.up_before, host.up, duration);
    }
}

// -1, 0 or 1: the greater number comes first.
static int greater_first(std::uint64_t one, std::uint64_t other) {
    return (one < other) - (one > other);
}

// Most traffic now comes first; among equals, most traffic so far; among those, the lower address,
// so that idle hosts keep their places from one query to the next.
static int row_compare(const void* one, const void* other) {
    const Row& a = *static_cast<const Row*>(one);
    const Row& b = *static_cast<const Row*>(other);
    int order = greater_first(std::uint64_t{a.down_rate} + a.up_rate,
                              std::uint64_t{b.down_rate} + b.up_rate);
    if (order == 0) order = greater_first(a.down + a.up, b.down + b.up);
    if (order == 0) order = greater_first(ntohl(b.address), ntohl(a.address));
    return order;
}

int hostsort_info_sort(int key, int flag) {
    if (key != kSortByTraffic || flag != kSortFlag) return -1;
    row_count = 0;
    if (!hosts_fill()) return -1;
    if (hosts_all().empty()) return 0;
    rows_fill(totals_measure());
    qsort(rows, row_count, sizeof rows[0], row_compare);
    return 0;
}

int hostsort_get_total_entry(void) {
    return static_cast<int>(row_count);
}

int hostsort_get_next(void* record, int index) {
    if (!record || index < 1 || static_cast<std::size_t>(index) > row_count) return -1;
    const Row& row = rows[index - 1];
    HostRecord host = {};
    inet_ntop(AF_INET, &row.address, host.ip, sizeof host.ip);
    host.down_total = row.down;
    host.up_total = row.up;
    host.down_rate = row.down_rate;
    host.up_rate = row.up_rate;
    memcpy(record, &host, sizeof host);
    return 0;
}
