// Libraries that are loaded when they are first needed, and the platform calls through them.
#include "tools/platform_library.h"

#include <dlfcn.h>

#include <cstdlib>
#include <span>

#include "hostsort.h"
#include "log/log.h"
#include "mvram.h"
#include "netlink_user.h"
#include "nvram.h"
#include "tools/text.h"
#include "wum.h"

namespace {

// One call of a platform library.
struct PlatformCall {
    const char* soname;
    const char* symbol;
    void* address;  // null until it is found
    bool sought;
};

enum CallIndex {
    kNvramGet,
    kNvramSet,
    kNvramCommit,
    kMvramGet,
    kMvramSet,
    kNetlinkRegist,
    kNetlinkSend,
    kNetlinkReceive,
    kNetlinkUnregist,
    kHostsortSort,
    kHostsortTotal,
    kHostsortNext,
    kWumStations,
    kWumKickout,
    kCallCount,
};

// clang-format off
PlatformCall calls[] = {
    // library          call                       in the order of CallIndex
    {"libnvram.so",    "nvram_get",                nullptr, false},
    {"libnvram.so",    "nvram_set",                nullptr, false},
    {"libnvram.so",    "nvram_commit",             nullptr, false},
    {"libmvram.so",    "mvram_get",                nullptr, false},
    {"libmvram.so",    "mvram_set",                nullptr, false},
    {"libnetlink.so",  "user_netlink_regist",      nullptr, false},
    {"libnetlink.so",  "netlink_send_user",        nullptr, false},
    {"libnetlink.so",  "netlink_receive_user",     nullptr, false},
    {"libnetlink.so",  "user_netlink_unregist",    nullptr, false},
    {"libhostsort.so", "hostsort_info_sort",       nullptr, false},
    {"libhostsort.so", "hostsort_get_total_entry", nullptr, false},
    {"libhostsort.so", "hostsort_get_next",        nullptr, false},
    {"libwum.so",      "Web_STAinfo_Get",          nullptr, false},
    {"libwum.so",      "WUMWTPKickoutSta",         nullptr, false},
};
// clang-format on
static_assert(sizeof calls / sizeof calls[0] == kCallCount);

// A call with the type `Function`; null when the gateway does not have it.
template <typename Function>
Function* platform_call(CallIndex index) {
    PlatformCall& call = calls[index];
    if (!call.sought) {
        call.sought = true;
        call.address = library_symbol(call.soname, call.symbol);
    }
    return reinterpret_cast<Function*>(call.address);
}

#ifdef CPECTL_PLATFORM_FOLDER

// A library in the folder of the stock libraries, whose names say nothing of this program. A search
// path in the program itself would do the same, but for every library that it needs, and at the
// cost of dozens of system calls.
void* stock_open(const char* soname) {
    char path[256] = CPECTL_PLATFORM_FOLDER "/";
    const auto name = std::span<char>(path).subspan<sizeof CPECTL_PLATFORM_FOLDER>();
    return text_copy(name, soname) ? dlopen(path, RTLD_LAZY) : nullptr;
}

#else

void* stock_open(const char*) {
    return nullptr;
}

#endif

void* library_open(const char* soname) {
    // What the environment names goes before any place of the program's own.
    const char* search_path = std::getenv("LD_LIBRARY_PATH");
    const bool led = search_path && *search_path;
    void* library = led ? nullptr : stock_open(soname);
    if (!library) library = dlopen(soname, RTLD_LAZY);
    if (!library && led) library = stock_open(soname);
    return library;
}

}  // namespace

void* library_symbol(const char* soname, const char* symbol) {
    // Behind this program, in the order in which they were loaded: what was preloaded or linked in.
    if (void* address = dlsym(RTLD_NEXT, symbol)) return address;

    void* library = library_open(soname);
    void* address = library ? dlsym(library, symbol) : nullptr;
    if (!address) cpectl_log(kLogError, "Can't find %s in %s", symbol, soname);
    return address;
}

// The plain C names. Without its library, a getter gives null, a count 0 and any other call -1.
extern "C" {

[[gnu::weak]] char* nvram_get(const char* name) {
    auto* call = platform_call<decltype(nvram_get)>(kNvramGet);
    return call ? call(name) : nullptr;
}

[[gnu::weak]] int nvram_set(const char* name, const char* value) {
    auto* call = platform_call<decltype(nvram_set)>(kNvramSet);
    return call ? call(name, value) : -1;
}

[[gnu::weak]] int nvram_commit(void) {
    auto* call = platform_call<decltype(nvram_commit)>(kNvramCommit);
    return call ? call() : -1;
}

[[gnu::weak]] char* mvram_get(const char* name) {
    auto* call = platform_call<decltype(mvram_get)>(kMvramGet);
    return call ? call(name) : nullptr;
}

[[gnu::weak]] int mvram_set(const char* name, const char* value) {
    auto* call = platform_call<decltype(mvram_set)>(kMvramSet);
    return call ? call(name, value) : -1;
}

[[gnu::weak]] int user_netlink_regist(int unit, int flag) {
    auto* call = platform_call<decltype(user_netlink_regist)>(kNetlinkRegist);
    return call ? call(unit, flag) : -1;
}

[[gnu::weak]] int netlink_send_user(int unit, void* request, int length) {
    auto* call = platform_call<decltype(netlink_send_user)>(kNetlinkSend);
    return call ? call(unit, request, length) : -1;
}

[[gnu::weak]] int netlink_receive_user(int (*callback)(void* reply)) {
    auto* call = platform_call<decltype(netlink_receive_user)>(kNetlinkReceive);
    return call ? call(callback) : -1;
}

[[gnu::weak]] void user_netlink_unregist(void) {
    auto* call = platform_call<decltype(user_netlink_unregist)>(kNetlinkUnregist);
    if (call) call();
}

[[gnu::weak]] int hostsort_info_sort(int key, int flag) {
    auto* call = platform_call<decltype(hostsort_info_sort)>(kHostsortSort);
    return call ? call(key, flag) : -1;
}

[[gnu::weak]] int hostsort_get_total_entry(void) {
    auto* call = platform_call<decltype(hostsort_get_total_entry)>(kHostsortTotal);
    return call ? call() : 0;
}

[[gnu::weak]] int hostsort_get_next(void* record, int index) {
    auto* call = platform_call<decltype(hostsort_get_next)>(kHostsortNext);
    return call ? call(record, index) : -1;
}

[[gnu::weak]] void* Web_STAinfo_Get(void) {
    auto* call = platform_call<decltype(Web_STAinfo_Get)>(kWumStations);
    return call ? call() : nullptr;
}

[[gnu::weak]] int WUMWTPKickoutSta(int unit, const char* mac) {
    auto* call = platform_call<decltype(WUMWTPKickoutSta)>(kWumKickout);
    return call ? call(unit, mac) : -1;
}

}  // extern "C"
