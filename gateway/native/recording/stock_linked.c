// The way of the recording calls to the stock libraries in a static program, where these are linked
// in with other names: all those that the build has.
#include <string.h>

#include "recording.h"

#define STOCK_CALLS(each)                                                                  \
    each(hostsort_get_next) each(hostsort_get_total_entry) each(hostsort_info_sort)        \
        each(mvram_get) each(mvram_set) each(netlink_receive_user) each(netlink_send_user) \
            each(nvram_commit) each(nvram_get) each(nvram_set) each(user_netlink_regist)   \
                each(user_netlink_unregist) each(Web_STAinfo_Get) each(WUMWTPKickoutSta)

#define DECLARED(call) __attribute__((weak)) void stock_##call(void);
#define LISTED(call) {#call, stock_##call},

STOCK_CALLS(DECLARED)

static const struct {
    const char* name;
    void (*function)(void);  // null when the library is not linked in
} stock_calls[] = {STOCK_CALLS(LISTED)};

void* stock_find(const char* library, const char* function) {
    (void)library;
    for (size_t i = 0; i < sizeof stock_calls / sizeof stock_calls[0]; i++) {
        if (strcmp(stock_calls[i].name, function) == 0) return (void*)stock_calls[i].function;
    }
    return NULL;
}
