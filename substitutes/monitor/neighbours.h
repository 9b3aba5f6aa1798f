// The IPv4 neighbours that the kernel knows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "monitor/rtnetlink.h"

// A neighbour whose MAC address is known.
struct Neighbour {
    std::uint32_t address;  // in network order
    std::uint8_t mac[6];
};

// The caller sets the first two and frees `list`.
struct NeighbourList {
    std::uint32_t device;  // number of the interface to look at; 0 for all
    std::size_t count_max;
    Neighbour* list;
    std::size_t count;
};

// Fills a list with the neighbours that are in use or were confirmed before: not those that failed
// to answer, not multicast. At most `count_max`; the rest is left out. False when the kernel does
// not answer or there is no memory; what was found until then is in the list.
[[nodiscard]] bool neighbours_read(mnl_socket* socket, NeighbourList& neighbours);
