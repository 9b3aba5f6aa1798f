// The checks of cpectl-platform-check, one function a library.
//
// Each runs in a process of its own in which nothing was loaded before, and says what it finds
// through report.h.
#pragma once

#include "report.h"

// The two key-value stores. Without `options.read_only` a scratch key is set and emptied again.
void check_nvram(const Options& options);
void check_mvram(const Options& options);

// The WAN rate query, sent and received once.
void check_netlink(const Options& options);

// The table of hosts, walked from the first to the last.
void check_hostsort(const Options& options);

// The list of stations, walked to its end. No station is sent away.
void check_wum(const Options& options);
