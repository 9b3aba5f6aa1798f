// The hosts with their totals, and the flows as they were last seen, both found by hash: adding up
// the traffic costs the same for each flow however many hosts there are.
//
// One table of each kind; a process holds the figures of one gateway.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "hostsort/conntrack.h"

inline constexpr std::size_t kHostMax = 4096;
inline constexpr std::size_t kFlowMax = 32768;

struct Host {
    std::uint32_t address;      // in network order
    std::uint32_t is_present;   // the kernel knows it as a neighbour now
    std::uint64_t down;         // bytes to the host
    std::uint64_t up;           // bytes from the host
    std::uint64_t down_before;  // the totals that rates are measured from
    std::uint64_t up_before;
};

// A flow whose bytes are in the totals as far as they are told here.
struct Flow {
    FlowKey key;
    std::uint32_t is_alive;  // the last walk of the kernel's table came across it
    std::uint32_t spare;
    std::uint64_t sent;
    std::uint64_t answered;
};
static_assert(sizeof(Flow) == 48);

std::span<Host> hosts_all();
void hosts_clear();

// The host with this address; null when it is not in the table.
Host* host_find(std::uint32_t address);

// The same, but a host that is missing is added. Null when the table is full.
Host* host_find_or_add(std::uint32_t address);

std::span<Flow> flows_all();
void flows_clear();

// The flow with this key; one that is missing is added with nothing moved so far. Null when the
// table is full.
Flow* flow_find_or_add(const FlowKey& key);
