// The totals of the hosts, kept from run to run; see totals.h.
//
// Each run holds the kept file's lock while it reads the file, walks the kernel's flows and writes
// the file again: each byte is then counted once, by whichever run comes first.
#include "hostsort/totals.h"

#include <linux/netlink.h>
#include <stdlib.h>
#include <string.h>

#include "hostsort/conntrack.h"
#include "hostsort/tables.h"
#include "monitor/clock.h"
#include "monitor/kept.h"
#include "monitor/rtnetlink.h"

static constexpr char kKeptName[] = "host-traffic";
static constexpr std::uint32_t kFormat = 0x484f5331;

// The kept file: this head, then `hosts` records KeptHost, then `flows` records Flow.
struct KeptHead {
    std::uint32_t format;  // kFormat
    std::uint32_t hosts;
    std::uint32_t flows;
    std::uint32_t spare;
    Surroundings surroundings;
    std::int64_t time;
};
static_assert(sizeof(KeptHead) == 72);

struct KeptHost {
    std::uint32_t address;
    std::uint32_t spare;
    std::uint64_t down;
    std::uint64_t up;
};
static_assert(sizeof(KeptHost) == 24);

static constexpr std::size_t kKeptMax =
    sizeof(KeptHead) + kHostMax * sizeof(KeptHost) + kFlowMax * sizeof(Flow);

static bool head_valid(const KeptHead& head, std::size_t size) {
    if (head.format != kFormat || head.hosts > kHostMax || head.flows > kFlowMax) return false;
    if (size != sizeof head + head.hosts * sizeof(KeptHost) + head.flows * sizeof(Flow))
        return false;
    return surroundings_equal(head.surroundings, surroundings_now());
}

// Hosts that are gone keep their totals as long as there is room: they may come back.
static void kept_hosts_take(const char* at, std::size_t count) {
    for (std::size_t i = 0; i < count; i++, at += sizeof(KeptHost)) {
        KeptHost kept;
        memcpy(&kept, at, sizeof kept);
        Host* host = host_find_or_add(kept.address);
        if (!host) continue;
        host->down = kept.down;
        host->up = kept.up;
    }
}

static void kept_flows_take(const char* at, std::size_t count) {
    flows_clear();
    for (std::size_t i = 0; i < count; i++, at += sizeof(Flow)) {
        Flow kept;
        memcpy(&kept, at, sizeof kept);
        Flow* flow = flow_find_or_add(kept.key);
        if (flow) *flow = kept;
    }
}

// Replaces totals and flows by the kept ones, and tells when these were taken. False when there are
// none of use; totals and flows are then left as they are.
static bool totals_load(std::int64_t& time) {
    FileContent content;
    if (!kept_read(kKeptName, kKeptMax, content)) return false;
    KeptHead head = {};
    if (content.size >= sizeof head) memcpy(&head, content.data, sizeof head);
    const bool valid = head_valid(head, content.size);
    if (valid) {
        const char* host_records = content.data + sizeof head;
        kept_hosts_take(host_records, head.hosts);
        kept_flows_take(host_records + head.hosts * sizeof(KeptHost), head.flows);
        time = head.time;
    }
    free(content.data);
    return valid;
}

static char* record_put(char* out, const void* record, std::size_t size) {
    memcpy(out, record, size);
    return out + size;
}

// Hosts go out in the table's order, in which those that are gone follow those that are present,
// the longest gone last: when the table is full one day, these find no room.
static std::size_t hosts_put(char*& out) {
    std::size_t count = 0;
    for (const Host& host : hosts_all()) {
        if (host.down == 0 && host.up == 0) continue;
        const KeptHost kept = {host.address, 0, host.down, host.up};
        out = record_put(out, &kept, sizeof kept);
        count++;
    }
    return count;
}

static std::size_t flows_put(char*& out) {
    std::size_t count = 0;
    for (const Flow& flow : flows_all()) {
        if (!flow.is_alive) continue;
        out = record_put(out, &flow, sizeof flow);
        count++;
    }
    return count;
}

static void totals_keep(std::int64_t time) {
    const std::size_t size_max = sizeof(KeptHead) + hosts_all().size() * sizeof(KeptHost) +
                                 flows_all().size() * sizeof(Flow);
    char* content = static_cast<char*>(malloc(size_max));
    if (!content) return;
    char* end = content + sizeof(KeptHead);
    KeptHead head = {};
    head.format = kFormat;
    head.hosts = static_cast<std::uint32_t>(hosts_put(end));
    head.flows = static_cast<std::uint32_t>(flows_put(end));
    head.surroundings = surroundings_now();
    head.time = time;
    memcpy(content, &head, sizeof head);
    (void)kept_replace(kKeptName, {content, static_cast<std::size_t>(end - content)});
    free(content);
}

// Counters that ran backwards were set to 0, or are those of another flow in the place of this one.
static bool is_anew(const Flow& flow, const FlowReading& reading) {
    return reading.sent < flow.sent || reading.answered < flow.answered;
}

static void flow_count(const FlowReading& reading) {
    Host* opener = host_find(reading.key.from);
    Host* answerer = host_find(reading.answerer);
    if (!opener && !answerer) return;
    // Without room for the flow it is not counted yet: if it were, it would be again next time.
    Flow* flow = flow_find_or_add(reading.key);
    if (!flow) return;

    const bool anew = is_anew(*flow, reading);
    const std::uint64_t sent = reading.sent - (anew ? 0 : flow->sent);
    const std::uint64_t answered = reading.answered - (anew ? 0 : flow->answered);
    if (opener) {
        opener->up += sent;
        opener->down += answered;
    }
    if (answerer) {
        answerer->up += answered;
        answerer->down += sent;
    }
    flow->sent = reading.sent;
    flow->answered = reading.answered;
    flow->is_alive = 1;
}

// Adds what flows have moved since the kept file was written, and keeps the outcome. `time` is set
// to the moment of the walk. False when the kernel does not tell its flows.
static bool totals_update(mnl_socket* conntrack, std::int64_t& time) {
    for (Flow& flow : flows_all())
        flow.is_alive = 0;
    time = clock_now();
    return conntrack_walk(conntrack, flow_count);
}

static void totals_mark_before() {
    for (Host& host : hosts_all()) {
        host.down_before = host.down;
        host.up_before = host.up;
    }
}

// Sets the totals that rates are measured from, those of the previous query if it is recent,
// otherwise those of now. False when nothing is being counted.
static bool totals_begin(mnl_socket* conntrack, std::int64_t& time) {
    const int lock = kept_lock(kKeptName);
    bool counting = totals_load(time) && clock_is_recent(time, clock_now());
    if (!counting) {
        counting = totals_update(conntrack, time) && !flows_all().empty();
        if (counting && lock >= 0) totals_keep(time);
    }
    if (lock >= 0) lock_release(lock);
    totals_mark_before();
    return counting;
}

static void totals_finish(mnl_socket* conntrack, std::int64_t& time) {
    const int lock = kept_lock(kKeptName);
    std::int64_t kept_time = 0;
    (void)totals_load(kept_time);
    if (totals_update(conntrack, time) && lock >= 0) totals_keep(time);
    if (lock >= 0) lock_release(lock);
}

static std::int64_t totals_measure_with(mnl_socket* conntrack) {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    if (!totals_begin(conntrack, begin)) return 0;
    clock_wait_until(begin + kSampleTime);
    totals_finish(conntrack, end);
    return end - begin;
}

std::int64_t totals_measure() {
    mnl_socket* conntrack = netlink_open(NETLINK_NETFILTER);
    if (!conntrack) return 0;
    const std::int64_t duration = totals_measure_with(conntrack);
    mnl_socket_close(conntrack);
    return duration;
}
