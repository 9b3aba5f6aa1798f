// libnetlink.so for a stock Linux: answers the query for the rates of the WAN links from the
// kernel's interface counters.
//
// The device of link n is the second-store key "WANn_DEV". Rates are those since the previous query
// of any process when that is recent, so a program that asks regularly gets the true averages;
// otherwise two readings are taken kSampleTime apart.
#pragma GCC visibility push(default)
#include "netlink_user.h"
#pragma GCC visibility pop

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "monitor/clock.h"
#include "monitor/kept.h"
#include "monitor/rtnetlink.h"
#include "mvram.h"

static constexpr std::size_t kLinkMax = 4;
static constexpr char kKeptName[] = "wan-rates";

// What one device has moved. A device that is made anew under its old name has another index.
struct Counters {
    char device[IF_NAMESIZE];
    std::uint32_t index;
    std::uint32_t spare;
    std::uint64_t received;  // bytes
    std::uint64_t sent;
};
static_assert(sizeof(Counters) == 40);

// A reading of all links; also the content of the kept file. Unused rows have an empty device.
struct Reading {
    std::uint32_t format;  // kFormat
    std::uint32_t count;   // rows in use
    Surroundings surroundings;
    std::int64_t time;
    Counters links[kLinkMax];
};
static constexpr std::uint32_t kFormat = 0x57414e31;
static_assert(sizeof(Reading) == 64 + kLinkMax * sizeof(Counters));

struct Link {
    int number;    // 1..4
    Counters now;  // the last reading
    Counters before;
    std::int64_t before_time;
};

struct LinkList {
    Link links[kLinkMax];
    std::size_t count;
};

static mnl_socket* channel;
static bool asked;

static int counters_take(const nlmsghdr* message, void* data) {
    Counters& counters = *static_cast<Counters*>(data);
    const nlattr* attribute = netlink_attribute(message, sizeof(ifinfomsg), IFLA_STATS64);
    if (!attribute) return MNL_CB_OK;
    // Kernels append fields to this record; the ones used here are at its head.
    rtnl_link_stats64 stats = {};
    const std::size_t size = mnl_attr_get_payload_len(attribute);
    memcpy(&stats, mnl_attr_get_payload(attribute), size < sizeof stats ? size : sizeof stats);

    const auto* link = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
    counters.index = static_cast<std::uint32_t>(link->ifi_index);
    counters.received = stats.rx_bytes;
    counters.sent = stats.tx_bytes;
    return MNL_CB_OK;
}

// Reads the counters of counters.device. False when there is no such device.
static bool counters_read(Counters& counters) {
    alignas(nlmsghdr) char buffer[128];
    nlmsghdr* request = netlink_request(buffer, RTM_GETLINK, 0);
    auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)));
    link->ifi_family = AF_UNSPEC;
    mnl_attr_put_strz(request, IFLA_IFNAME, counters.device);
    counters.index = 0;
    return netlink_ask(channel, request, counters_take, &counters) && counters.index != 0;
}

// Reads all links. Those whose device is gone leave the list.
static void links_read(LinkList& list) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < list.count; i++) {
        if (!counters_read(list.links[i].now)) continue;
        list.links[kept++] = list.links[i];
    }
    list.count = kept;
}

static void links_configured(LinkList& list) {
    list.count = 0;
    for (int number = 1; number <= static_cast<int>(kLinkMax); number++) {
        char key[16];
        snprintf(key, sizeof key, "WAN%d_DEV", number);
        const char* device = mvram_get(key);
        if (!device || !*device || strlen(device) >= IF_NAMESIZE) continue;
        Link& link = list.links[list.count++];
        link = {};
        link.number = number;
        memcpy(link.now.device, device, strlen(device));
    }
}

// The reading of the previous query. False when there is none of use at the time `now`.
static bool previous_read(std::int64_t now, Reading& previous) {
    FileContent content;
    if (!kept_read(kKeptName, sizeof previous, content)) return false;
    const bool whole = content.size == sizeof previous;
    if (whole) memcpy(&previous, content.data, sizeof previous);
    free(content.data);
    return whole && previous.format == kFormat && previous.count <= kLinkMax &&
           clock_is_recent(previous.time, now) &&
           surroundings_equal(previous.surroundings, surroundings_now());
}

static void reading_keep(const LinkList& list, std::int64_t time) {
    Reading reading = {};
    reading.format = kFormat;
    reading.count = static_cast<std::uint32_t>(list.count);
    reading.surroundings = surroundings_now();
    reading.time = time;
    for (std::size_t i = 0; i < list.count; i++)
        reading.links[i] = list.links[i].now;

    // Without a kept reading the next query takes two of its own. Of two queries at once either
    // one's will do.
    const int lock = kept_lock(kKeptName);
    if (lock < 0) return;
    (void)kept_replace(kKeptName, {reinterpret_cast<char*>(&reading), sizeof reading});
    lock_release(lock);
}

static const Counters* reading_find(const Reading& reading, const Counters& link) {
    for (std::size_t i = 0; i < reading.count; i++) {
        const Counters& row = reading.links[i];
        if (row.index == link.index && memcmp(row.device, link.device, sizeof row.device) == 0)
            return &row;
    }
    return nullptr;
}

// Sets what the rates are measured from: the previous query where it knew the link, otherwise the
// reading just taken. Returns the time of the later of the two, as far as they are used.
static std::int64_t links_compare_with_previous(LinkList& list, std::int64_t time) {
    Reading previous = {};
    const bool known = previous_read(time, previous);
    std::int64_t latest = 0;
    for (std::size_t i = 0; i < list.count; i++) {
        Link& link = list.links[i];
        const Counters* row = known ? reading_find(previous, link.now) : nullptr;
        link.before = row ? *row : link.now;
        link.before_time = row ? previous.time : time;
        if (link.before_time > latest) latest = link.before_time;
    }
    return latest;
}

// Reads every configured link, twice where it takes that. Returns the time of the last reading.
static std::int64_t links_measure(LinkList& list) {
    links_configured(list);
    std::int64_t time = clock_now();
    links_read(list);
    if (list.count == 0) return time;

    const std::int64_t measured_from = links_compare_with_previous(list, time);
    if (time - measured_from >= kSampleTime) return time;
    clock_wait_until(measured_from + kSampleTime);
    time = clock_now();
    links_read(list);
    return time;
}

// Bits per second. A counter that ran backwards was reset, or is one of 32 bits that began anew:
// nothing can be said then, and the rate is 0.
static std::int32_t bit_rate(std::uint64_t before, std::uint64_t now, std::int64_t nanoseconds) {
    constexpr std::uint64_t kBitsPerByte = 8;
    if (now <= before) return 0;
    const std::uint64_t bytes = now - before;
    if (bytes > UINT64_MAX / kBitsPerByte) return INT32_MAX;
    return static_cast<std::int32_t>(rate_per_second(bytes * kBitsPerByte, nanoseconds, INT32_MAX));
}

static void entry_fill(const Link& link, std::int64_t time, WanRateEntry& entry) {
    const std::int64_t duration = time - link.before_time;
    entry.down_rate = bit_rate(link.before.received, link.now.received, duration);
    entry.up_rate = bit_rate(link.before.sent, link.now.sent, duration);
    snprintf(entry.name, sizeof entry.name, "WAN%d", link.number);
}

int user_netlink_regist(int unit, int) {
    if (unit != kWanRateUnit || channel) return -1;
    channel = netlink_open(NETLINK_ROUTE);
    return channel ? 0 : -1;
}

int netlink_send_user(int unit, void* request, int length) {
    asked = false;
    if (!channel || unit != kWanRateUnit || !request) return -1;
    if (length != static_cast<int>(sizeof(WanRateRequest))) return -1;

    WanRateRequest query;
    memcpy(&query, request, sizeof query);
    asked = query.type == kWanRateRequestType && query.length == sizeof query &&
            query.code == kWanRateRequestCode && query.unit == kWanRateUnit;
    return asked ? length : -1;
}

int netlink_receive_user(int (*callback)(void* reply)) {
    if (!channel || !asked || !callback) return -1;
    asked = false;

    LinkList list;
    const std::int64_t time = links_measure(list);
    if (list.count > 0) reading_keep(list, time);

    struct {
        WanRateReply head;
        WanRateEntry entries[kLinkMax];
    } reply = {};
    reply.head.count = static_cast<std::int32_t>(list.count);
    for (std::size_t i = 0; i < list.count; i++)
        entry_fill(list.links[i], time, reply.entries[i]);
    callback(&reply);
    return 0;
}

void user_netlink_unregist(void) {
    if (channel) mnl_socket_close(channel);
    channel = nullptr;
    asked = false;
}
