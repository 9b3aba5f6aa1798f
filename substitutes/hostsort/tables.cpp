// The tables of hosts and flows; see tables.h.
#include "hostsort/tables.h"

#include <string.h>

// An index has twice as many slots as its table rows, so that a search soon meets an empty slot. A
// slot holds the row's number counted from 1; 0 is an empty slot. Rows are never taken out singly.
static Host hosts[kHostMax];
static std::size_t host_count;
static std::uint32_t host_slots[2 * kHostMax];

static Flow flows[kFlowMax];
static std::size_t flow_count;
static std::uint32_t flow_slots[2 * kFlowMax];

static std::uint32_t hash_add(std::uint32_t hash, std::uint32_t value) {
    hash = (hash ^ value) * 0x9e3779b1u;  // 2^32 divided by the golden ratio
    return hash ^ (hash >> 15);
}

static std::uint32_t flow_hash(const FlowKey& key) {
    const std::uint32_t ports = std::uint32_t{key.from_port} << 16 | key.to_port;
    std::uint32_t hash = hash_add(key.protocol, key.number);
    hash = hash_add(hash, key.began);
    hash = hash_add(hash, key.from);
    hash = hash_add(hash, key.to);
    return hash_add(hash, ports);
}

std::span<Host> hosts_all() {
    return {hosts, host_count};
}

void hosts_clear() {
    if (host_count == 0) return;
    host_count = 0;
    memset(host_slots, 0, sizeof host_slots);
}

// The slot of the host, or the empty one where it belongs.
static std::uint32_t& host_slot(std::uint32_t address) {
    std::size_t at = hash_add(0, address) % (2 * kHostMax);
    while (host_slots[at] != 0 && hosts[host_slots[at] - 1].address != address)
        at = (at + 1) % (2 * kHostMax);
    return host_slots[at];
}

Host* host_find(std::uint32_t address) {
    const std::uint32_t slot = host_slot(address);
    return slot == 0 ? nullptr : &hosts[slot - 1];
}

Host* host_find_or_add(std::uint32_t address) {
    std::uint32_t& slot = host_slot(address);
    if (slot != 0) return &hosts[slot - 1];
    if (host_count == kHostMax) return nullptr;
    Host& host = hosts[host_count++];
    slot = static_cast<std::uint32_t>(host_count);
    host = {};
    host.address = address;
    return &host;
}

std::span<Flow> flows_all() {
    return {flows, flow_count};
}

void flows_clear() {
    if (flow_count == 0) return;
    flow_count = 0;
    memset(flow_slots, 0, sizeof flow_slots);
}

Flow* flow_find_or_add(const FlowKey& key) {
    std::size_t at = flow_hash(key) % (2 * kFlowMax);
    while (flow_slots[at] != 0) {
        Flow& flow = flows[flow_slots[at] - 1];
        if (memcmp(&flow.key, &key, sizeof key) == 0) return &flow;
        at = (at + 1) % (2 * kFlowMax);
    }
    if (flow_count == kFlowMax) return nullptr;
    Flow& flow = flows[flow_count++];
    flow_slots[at] = static_cast<std::uint32_t>(flow_count);
    flow = {};
    flow.key = key;
    return &flow;
}
