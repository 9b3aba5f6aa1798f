// The wireless station list and station removal, as libwum.so offers them.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { kStationSsidValid = 1 };  // bit 0 of StationRecord::flags

// One associated station. The library owns the records.
struct StationRecord {
    uint8_t reserved[18];
    char ip[16];     // IPv4 address, dotted; at most 16 characters count
    char ssid[146];  // name of the station's network, NUL-terminated
    uint32_t flags;
    struct StationRecord* next;  // null at the end
};

// The first record of the station list, or null when no station is associated.
void* Web_STAinfo_Get(void);

// Disconnects the station with this MAC address, given as text; `unit` is 0. 0 on success,
// negative on failure.
int WUMWTPKickoutSta(int unit, const char* mac);

#ifdef __cplusplus
}

static_assert(offsetof(StationRecord, ip) == 18);
static_assert(offsetof(StationRecord, ssid) == 34);
static_assert(offsetof(StationRecord, flags) == 180);
static_assert(offsetof(StationRecord, next) == 184);
static_assert(sizeof(StationRecord) == 184 + sizeof(void*));
#endif
