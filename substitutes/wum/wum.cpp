// libwum.so for a stock Linux: the stations of hostapd's interfaces, and their removal.
//
// Stations and network names come from the daemon's control sockets, the stations' addresses from
// the kernel's neighbours.
#pragma GCC visibility push(default)
#include "wum.h"
#pragma GCC visibility pop

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "monitor/clock.h"
#include "monitor/neighbours.h"
#include "wum/control.h"
#include "wum/text.h"
#include "wum/walk.h"

static constexpr std::size_t kRecordMax = 4096;
static constexpr std::size_t kNeighbourMax = 8192;
static constexpr std::int64_t kWalkTime = 2 * kSecond;  // for all sockets together

static StationRecord records[kRecordMax];
static std::size_t record_count;

static int neighbour_compare(const void* one, const void* other) {
    const Neighbour& a = *static_cast<const Neighbour*>(one);
    const Neighbour& b = *static_cast<const Neighbour*>(other);
    const int order = memcmp(a.mac, b.mac, sizeof a.mac);
    return order != 0 ? order : memcmp(&a.address, &b.address, sizeof a.address);
}

// All neighbours in the order of their MAC addresses.
static void neighbours_by_mac(NeighbourList& neighbours) {
    neighbours.count_max = kNeighbourMax;
    mnl_socket* socket = netlink_open(NETLINK_ROUTE);
    if (!socket) return;
    // An incomplete list leaves stations without address; that is all that can be said of them.
    (void)neighbours_read(socket, neighbours);
    mnl_socket_close(socket);
    if (neighbours.count > 0)
        qsort(neighbours.list, neighbours.count, sizeof(Neighbour), neighbour_compare);
}

// The neighbours with this MAC address.
static std::span<const Neighbour> neighbours_find(const NeighbourList& neighbours, const Mac& mac) {
    std::size_t begin = 0;
    std::size_t end = neighbours.count;
    while (begin < end) {
        const std::size_t middle = begin + (end - begin) / 2;
        const bool before = memcmp(neighbours.list[middle].mac, mac.bytes, sizeof mac.bytes) < 0;
        (before ? begin : end) = before ? middle + 1 : middle;
    }
    while (end < neighbours.count &&
           memcmp(neighbours.list[end].mac, mac.bytes, sizeof mac.bytes) == 0)
        end++;
    return {neighbours.list + begin, end - begin};
}

// A new record of a network, without address. Null when there is no room for more.
static StationRecord* record_add(const char (&ssid)[sizeof StationRecord::ssid]) {
    if (record_count == kRecordMax) return nullptr;
    StationRecord& record = records[record_count++];
    record = {};
    memcpy(record.ssid, ssid, sizeof record.ssid);
    if (*ssid) record.flags = kStationSsidValid;
    return &record;
}

// A station with several addresses has a record for each, one without known address has one with
// an empty address.
static void station_add(const Mac& mac, const char (&ssid)[sizeof StationRecord::ssid],
                        const NeighbourList& neighbours) {
    const std::span<const Neighbour> found = neighbours_find(neighbours, mac);
    if (found.empty()) (void)record_add(ssid);
    for (const Neighbour& neighbour : found) {
        StationRecord* record = record_add(ssid);
        if (record) inet_ntop(AF_INET, &neighbour.address, record->ip, sizeof record->ip);
    }
}

// The name of the interface's network; empty when the daemon does not tell one. False when it does
// not answer.
static bool ssid_ask(wpa_ctrl* control, std::int64_t deadline,
                     char (&ssid)[sizeof StationRecord::ssid]) {
    char buffer[kReplySize];
    std::string_view reply;
    std::string_view escaped;
    memset(ssid, 0, sizeof ssid);
    if (!control_ask(control, "GET_CONFIG", deadline, buffer, reply)) return false;
    if (line_value(reply, "ssid=", escaped)) unescape(escaped, ssid);
    return true;
}

static void stations_of(const SocketName& name, std::int64_t deadline,
                        const NeighbourList& neighbours) {
    wpa_ctrl* control = control_open(name);
    if (!control) return;
    char ssid[sizeof StationRecord::ssid];
    if (ssid_ask(control, deadline, ssid)) {
        for (const WalkedStation& station : stations_walk(control, deadline))
            if (station.is_associated) station_add(station.mac, ssid, neighbours);
    }
    wpa_ctrl_close(control);
}

static void stations_of_all(std::span<const SocketName> names) {
    const std::int64_t deadline = clock_now() + kWalkTime;
    NeighbourList neighbours = {};
    neighbours_by_mac(neighbours);
    for (const SocketName& name : names)
        stations_of(name, deadline, neighbours);
    free(neighbours.list);
}

void* Web_STAinfo_Get(void) {
    SocketName names[kSocketMax];
    const std::size_t count = sockets_list(names);
    record_count = 0;
    if (count > 0) stations_of_all({names, count});

    for (std::size_t i = 0; i + 1 < record_count; i++)
        records[i].next = &records[i + 1];
    return record_count > 0 ? records : nullptr;
}

// Tells one interface to remove a station. True when it says that it did.
static bool station_kick(const SocketName& name, std::string_view command, std::int64_t deadline) {
    wpa_ctrl* control = control_open(name);
    if (!control) return false;
    char buffer[kReplySize];
    std::string_view reply;
    std::string_view line;
    const bool done = control_ask(control, command, deadline, buffer, reply) &&
                      line_take(reply, line) && line == "OK";
    wpa_ctrl_close(control);
    return done;
}

// Whether an address belongs to one station: the daemon takes a group's to mean all stations.
static bool is_single(const Mac& mac) {
    return (mac.bytes[0] & 1) == 0;
}

int WUMWTPKickoutSta(int unit, const char* mac_text) {
    Mac mac;
    // The command is made from the bytes: nothing else of the text reaches the daemon.
    if (unit != 0 || !mac_text || !mac_read(mac_text, mac) || !is_single(mac)) return -1;
    char command[40];
    const std::uint8_t* b = mac.bytes;
    const int length =
        snprintf(command, sizeof command, "DEAUTHENTICATE %02x:%02x:%02x:%02x:%02x:%02x", b[0],
                 b[1], b[2], b[3], b[4], b[5]);

    SocketName names[kSocketMax];
    const std::size_t count = sockets_list(names);
    const std::int64_t deadline = clock_now() + kWalkTime;
    bool done = false;
    for (std::size_t i = 0; i < count; i++)
        done |= station_kick(names[i], {command, static_cast<std::size_t>(length)}, deadline);
    return done ? 0 : -1;
}
