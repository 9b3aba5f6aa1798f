// One platform library: found and loaded as cpectl does it.
#pragma once

// Looks for each of the calls of a library (the list ends with null), says where the library is
// and what is missing. `addresses` gets one entry a call. True when all are there.
bool library_open(const char* soname, const char* const* calls, void** addresses);
