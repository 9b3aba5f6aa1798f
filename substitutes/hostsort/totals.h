// The totals of the hosts: what flows move is added up over the runs of the program, so that totals
// stay when flows end.
#pragma once

#include <cstdint>

// Adds to the totals what the flows of the hosts in the table have moved since the previous query
// of any process. Afterwards the hosts' totals of a moment ago are in down_before and up_before.
// Returns how long ago that was, in nanoseconds: the time to measure rates over. 0 when no rate
// can be told, because nothing is being counted. Takes up to kSampleTime longer when there was no
// recent query.
std::int64_t totals_measure();
