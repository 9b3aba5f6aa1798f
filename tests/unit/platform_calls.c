// A platform library of the tests: each call answers with what it was asked and from where.
//
// Built once for each library (PLATFORM_nvram ...), and once with all calls to be preloaded or
// linked in. BASE tells the builds apart: it is added to each number and stands before each text.
#include <stdio.h>

#include "hostsort.h"
#include "mvram.h"
#include "netlink_user.h"
#include "nvram.h"
#include "wum.h"

#define TEXT_OF(x) #x
#define TEXT(x) TEXT_OF(x)

#if defined(PLATFORM_nvram) || defined(PLATFORM_mvram) || defined(PLATFORM_all)
static char* answer(const char* call, const char* name) {
    static char text[128];
    snprintf(text, sizeof text, "%s %s %s", TEXT(BASE), call, name);
    return text;
}
#endif

#if defined(PLATFORM_nvram) || defined(PLATFORM_all)
char* nvram_get(const char* name) {
    return answer("nvram_get", name);
}
int nvram_set(const char* name, const char* value) {
    return BASE + name[0] * 256 + value[0];
}
int nvram_commit(void) {
    return BASE + 1;
}
#endif

#if defined(PLATFORM_mvram) || defined(PLATFORM_all)
char* mvram_get(const char* name) {
    return answer("mvram_get", name);
}
int mvram_set(const char* name, const char* value) {
    return BASE + name[0] * 256 + value[0] + 1;
}
#endif

#if defined(PLATFORM_netlink) || defined(PLATFORM_all)
int user_netlink_regist(int unit, int flag) {
    return BASE + unit * 10 + flag;
}
int netlink_send_user(int unit, void* request, int length) {
    return BASE + unit * 10 + length + *(const char*)request;
}
int netlink_receive_user(int (*callback)(void* reply)) {
    char reply = 7;
    return BASE + callback(&reply);
}
void user_netlink_unregist(void) {
    printf("%d unregistered\n", BASE);
}
#endif

#if defined(PLATFORM_hostsort) || defined(PLATFORM_all)
int hostsort_info_sort(int key, int flag) {
    return BASE + key * 10 + flag;
}
int hostsort_get_total_entry(void) {
    return BASE + 2;
}
int hostsort_get_next(void* record, int index) {
    *(char*)record = 'r';
    return BASE + index;
}
#endif

#if defined(PLATFORM_wum) || defined(PLATFORM_all)
void* Web_STAinfo_Get(void) {
    static int station = BASE + 3;
    return &station;
}
int WUMWTPKickoutSta(int unit, const char* mac) {
    return BASE + unit * 10 + mac[0];
}
#endif

// What a library is without its calls.
int platform_library_is_here(void);
int platform_library_is_here(void) {
    return BASE;
}
