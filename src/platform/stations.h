// Wireless stations, beside the handlers of the table: routines that no command reaches.
#pragma once

#include <cstdint>

struct cJSON;

// Appends one entry for each host that has a MAC to `array`, wireless or wired, up to the first
// host whose address does not parse. Returns 0.
int add_data_userinfo(cJSON* array);

// Compares the hosts with those of the last call, logs what differs, and remembers the new ones
// (300 at most). Returns 0.
int cpectl_stalist_diff(const cJSON* args);

// The MAC of each host at the last cpectl_stalist_diff(), NUL-padded: record n belongs to host
// n + 1.
inline constexpr int kStaListCount = 300;
extern char stalist[kStaListCount][20];

// Acknowledges a reporting interval ("value", a number that is not 0); stores nothing.
cJSON* cpectl_stacycle_set(std::int32_t argc, const cJSON* args);

// Starts the initialisation of the wireless network in the background, the later the more of them
// are running. As system_operate(); 0 when that number cannot be told.
int wireless_set_2g();

// Starts the initialisation of the MAC filter in the background. As system(3).
int wireless_macfilter();
