// Calls that write text without knowing the size of its buffer, or that keep state between calls:
// using one is a compile error. The build includes this before every source file of src/.
#pragma once

// The standard headers that name these calls come first.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#pragma GCC poison strcpy strcat strncpy strncat sprintf vsprintf strtok gets  // see text.h
