// One platform library: found and loaded as cpectl does it.
#include "library.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "report.h"
#include "tools/platform_library.h"

namespace {

// Says from which file a call comes.
void say_where(void* address) {
    Dl_info info = {};
    if (dladdr(address, &info) && info.dli_fname) say_ok("loaded from %s", info.dli_fname);
}

// Whether all that the library itself needs is there: otherwise cpectl, which binds lazily, would
// be ended in the middle of a call. In a process of its own, since a library that was loaded
// lazily is not looked at again.
void check_complete(const char* soname) {
    const pid_t process = fork();
    if (process == 0) {
        char reason[160];
        if (!dlopen(soname, RTLD_NOW)) {
            std::snprintf(reason, sizeof reason, "%s", dlerror());
            if (dlopen(soname, RTLD_LAZY))
                say_wrong("it needs something that is not there: %s", reason);
        }
        _exit(0);
    }
    if (process > 0) waitpid(process, nullptr, 0);
}

void say_missing(const char* soname, const char* call) {
    void* library = dlopen(soname, RTLD_LAZY);
    if (library) say_wrong("%s is missing", call);
    if (!library) say_wrong("cannot be loaded: %s", dlerror());
}

}  // namespace

bool library_open(const char* soname, const char* const* calls, void** addresses) {
    check_complete(soname);
    bool complete = true;
    bool loaded = false;
    for (int i = 0; calls[i]; i++) {
        addresses[i] = library_symbol(soname, calls[i]);
        if (addresses[i] && !loaded) say_where(addresses[i]);
        loaded = loaded || addresses[i];
    }
    for (int i = 0; calls[i]; i++) {
        if (addresses[i]) continue;
        say_missing(soname, calls[i]);
        complete = false;
        if (!dlopen(soname, RTLD_LAZY)) return false;  // said once is enough
    }
    if (complete) say_ok("all of its calls are there");
    return complete;
}
