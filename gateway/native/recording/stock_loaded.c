// The way of a recording library to the stock library, which is loaded.
#include <dlfcn.h>
#include <stdio.h>

#include "recording.h"

void* stock_find(const char* library, const char* function) {
    static void* opened;
    if (!opened) {
        char path[128];
        snprintf(path, sizeof path, "/platform/%s", library);
        opened = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    }
    return opened ? dlsym(opened, function) : NULL;
}
