// One platform library of a made-up vendor, for the tests of cpectl-platform-check. It is compiled
// with -DLIBRARY_<name> for the library and, for one that is not as it should be, with
// -DFAULT=<name of the fault>.
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "hostsort.h"
#include "netlink_user.h"
#include "wum.h"

enum Fault {
    none,
    // the stores
    static_buffer,
    one_text_a_key,
    commit_fails,
    commit_forgets,
    set_fails,
    set_gives_1,
    set_is_lost,
    not_shared,
    cut_at_64,
    no_newline,
    absent_is_empty,
    prints,
    crashes,
    hangs,
    exits,
    lacks_commit,
    lacks_a_need,
    // the hosts
    shifted,
    unterminated,
    too_long,
    unfilled,
    wide_rates,
    negative_total,
    huge_total,
    unreadable,
    behind,
    sort_fails,
    binary_ip,
    odd_rate,
    // the stations
    endless,
    wild_pointer,
    early_next,
    endless_ssid,
    // the WAN links
    no_callback,
    twice,
    many,
    short_reply,
    other_name,
    same_name,
    unended_name,
    negative_rate,
    send_fails,
    regist_fails,
    receive_fails,
    no_reply,
};
#ifndef FAULT
#define FAULT none
#endif
static const enum Fault fault = FAULT;

// ---- the stores: one file a key in the folder VENDOR_STORE
// ---------------------------------------

#if defined(LIBRARY_nvram) || defined(LIBRARY_mvram)
static char kept[256];  // what a store that shares nothing remembers

static void path_of(char* path, size_t size, const char* name) {
    snprintf(path, size, "%s/%s", getenv("VENDOR_STORE"), name);
}

static char* store_get(const char* name) {
    static char buffer[4096];
    static char named[4096];
    char path[512];
    if (fault == crashes) return *(char* volatile*)16;
    if (fault == prints) puts("nvram: reading");
    if (fault == exits) exit(3);
    while (fault == hangs)
        pause();
    if (fault == not_shared && kept[0]) return strdup(kept);
    path_of(path, sizeof path, name);
    FILE* file = fopen(path, "rb");
    if (!file) return fault == absent_is_empty ? strdup("") : NULL;
    char* text = fault == static_buffer ? buffer : malloc(sizeof buffer);
    if (fault == one_text_a_key && strcmp(name, "CPECTL_PLATFORM_CHECK") == 0) text = named;
    text[fread(text, 1, sizeof buffer - 1, file)] = '\0';
    fclose(file);
    return text;
}

static int store_set(const char* name, const char* value) {
    char path[512];
    if (fault == set_fails) {
        errno = ENOSPC;
        return -1;
    }
    if (fault == set_is_lost) return 0;
    if (fault == not_shared) {
        snprintf(kept, sizeof kept, "%s", value);
        return 0;
    }
    path_of(path, sizeof path, name);
    FILE* file = fopen(path, "wb");
    if (!file) return -1;
    size_t length = strlen(value);
    if (fault == cut_at_64 && length > 64) length = 64;
    if (fault == no_newline) length = strcspn(value, "\n");
    fwrite(value, 1, length, file);
    fclose(file);
    return fault == set_gives_1 ? 1 : 0;
}
#endif

#ifdef LIBRARY_nvram
char* nvram_get(const char* name) {
    return store_get(name);
}
int nvram_set(const char* name, const char* value) {
    return store_set(name, value);
}
#ifndef WITHOUT_COMMIT
int nvram_commit(void) {
    if (fault == commit_forgets) store_set("CPECTL_PLATFORM_CHECK", "as flashed");
    return fault == commit_fails ? -1 : 0;
}
#endif
#endif

#ifdef LIBRARY_mvram
char* mvram_get(const char* name) {
    return store_get(name);
}
int mvram_set(const char* name, const char* value) {
    return store_set(name, value);
}
#endif

#ifdef WITH_A_NEED
int vendor_helper(void);
int unused(void) {
    return vendor_helper();
}
#endif

// ---- the hosts
// -----------------------------------------------------------------------------------

#ifdef LIBRARY_hostsort
enum { kHosts = 3 };

int hostsort_info_sort(int key, int flag) {
    return fault == sort_fails || key != 1 || flag != 0 ? -1 : 0;
}

int hostsort_get_total_entry(void) {
    if (fault == negative_total) return -1;
    return fault == huge_total ? 1000000 : kHosts;
}

int hostsort_get_next(void* record, int index) {
    const int last = fault == behind ? kHosts + 1 : kHosts;
    if (index < 1 || index > last || fault == unreadable) return -1;
    struct HostRecord host;
    memcpy(&host, record, sizeof host);
    snprintf(host.ip, sizeof host.ip, "192.168.1.%d", 10 + index);
    if (fault == unterminated) memset(host.ip, '1', sizeof host.ip);
    if (fault == binary_ip) memcpy(host.ip, "\xc0\xa8\x01\x0b", 4);
    host.down_total = 7000000 + (uint64_t)index;
    host.up_total = 300000;
    host.down_rate = fault == odd_rate ? 0x5A5A5A5Au : 20000;
    if (fault != unfilled) host.up_rate = 1000;
    memset(host.reserved, 0, sizeof host.reserved);
    if (fault == shifted) {
        memmove((char*)&host + 44, (char*)&host + 40, 28);
    } else if (fault == wide_rates) {
        const uint64_t rates[2] = {20000, 1000};
        host.down_total = 0;
        memcpy((char*)&host + 48, rates, sizeof rates);
    }
    memcpy(record, &host, sizeof host);
    if (fault == too_long) memset((char*)record + sizeof host, 0, 8);
    return 0;
}
#endif

// ---- the stations
// --------------------------------------------------------------------------------

#ifdef LIBRARY_wum
void* Web_STAinfo_Get(void) {
    static struct StationRecord stations[3];
    for (int i = 0; i < 3; i++) {
        struct StationRecord* station = &stations[i];
        snprintf(station->ip, sizeof station->ip, "192.168.1.%d", 20 + i);
        snprintf(station->ssid, sizeof station->ssid, "office");
        station->flags = 0xFFF0u | kStationSsidValid;
        station->next = i < 2 ? station + 1 : NULL;
    }
    if (fault == endless) stations[2].next = &stations[1];
    if (fault == wild_pointer) stations[1].next = (struct StationRecord*)(uintptr_t)4096;
    if (fault == endless_ssid) memset(stations[1].ssid, 'x', sizeof stations[1].ssid);
    if (fault == shifted) memmove((char*)stations + 20, (char*)stations + 18, 160);
    if (fault == early_next) {
        // A record whose flags come last: the pointer's bytes stand where flags are expected.
        memset((char*)&stations[0] + 180, 0xFF, 4 + sizeof(void*));
    }
    return stations;
}

int WUMWTPKickoutSta(int unit, const char* mac) {
    (void)unit;
    (void)mac;
    abort();
}
#endif

// ---- the WAN links
// -------------------------------------------------------------------------------

#ifdef LIBRARY_netlink
static int asked;

int user_netlink_regist(int unit, int flag) {
    return fault == regist_fails || unit != kWanRateUnit || flag != 0 ? -1 : 0;
}

int netlink_send_user(int unit, void* request, int length) {
    const struct WanRateRequest* asks = request;
    asked = unit == kWanRateUnit && length == 48 && asks->type == kWanRateRequestType &&
            asks->length == 48 && asks->code == kWanRateRequestCode && asks->unit == kWanRateUnit;
    return asked && fault != send_fails ? length : -1;
}

// At the end of a page behind which nothing is.
static char* reply_memory(size_t size) {
    const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    char* memory = mmap(NULL, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    munmap(memory + page, page);
    return memory + page - size;
}

int netlink_receive_user(int (*callback)(void* reply)) {
    enum { kLinks = 2 };
    struct {
        struct WanRateReply head;
        struct WanRateEntry links[kLinks];
    } reply = {{.count = kLinks}, {{8000, 4000, {0}, "WAN1"}, {16000, 2000, {0}, "WAN3"}}};
    while (fault == hangs)
        pause();
    if (!asked || fault == receive_fails) return -1;
    if (fault == many) reply.head.count = 100;
    if (fault == short_reply) reply.head.count = 4;
    if (fault == other_name) memcpy(reply.links[1].name, "eth1", 5);
    if (fault == same_name) memcpy(reply.links[1].name, "WAN1", 5);
    if (fault == unended_name) memset(reply.links[0].name, 'W', 32);
    if (fault == negative_rate) reply.links[0].up_rate = -4000;
    if (fault == shifted) memmove((char*)reply.links + 8, reply.links, sizeof reply.links - 8);
    char* memory = reply_memory(sizeof reply);
    memcpy(memory, &reply, sizeof reply);
    if (fault == no_callback) return 0;
    if (fault == twice) callback(memory);
    callback(fault == no_reply ? NULL : memory);
    return 0;
}

void user_netlink_unregist(void) {}
#endif
