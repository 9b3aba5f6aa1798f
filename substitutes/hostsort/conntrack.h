// The IPv4 flows that the kernel tracks, with what they have moved.
#pragma once

#include <cstdint>

#include "monitor/rtnetlink.h"

// What tells one flow from all others. Addresses and ports are in network order, the ports 0 for
// protocols without. Two flows between the same ports, one after the other, differ in the kernel's
// number, mostly, and certainly in when they began; but that is known only where the kernel notes
// it (net.netfilter.nf_conntrack_timestamp).
struct FlowKey {
    std::uint32_t number;
    std::uint32_t began;  // microseconds, modulo 2^32; 0 when not known
    std::uint32_t from;   // who opened the flow
    std::uint32_t to;     // the address that was called
    std::uint16_t from_port;
    std::uint16_t to_port;
    std::uint32_t protocol;
};
static_assert(sizeof(FlowKey) == 24);

struct FlowReading {
    FlowKey key;
    std::uint32_t answerer;  // who answers in truth, behind any address translation; network order
    std::uint64_t sent;      // bytes of packets from the opener, their IP headers included
    std::uint64_t answered;  // bytes of packets to the opener
};

// Calls `each` for every flow that has counters; those that began while the kernel's accounting
// (net.netfilter.nf_conntrack_acct) was off have none. `socket` is of the family
// NETLINK_NETFILTER. True when the kernel listed all of its flows; false for one without
// connection tracking or a caller without the right to see it (CAP_NET_ADMIN).
[[nodiscard]] bool conntrack_walk(mnl_socket* socket, void (*each)(const FlowReading& flow));
