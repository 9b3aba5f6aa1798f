// Calls the platform libraries that watch the network as the program does, and prints what they say
// as one JSON text a line. The arguments are a list of steps, done in order:
//
//   wan                     the WAN query: registration, request, reply
//   wan NAME=VALUE,...      the same with other numbers: unit, sendunit, length, type, size, code,
//                           requestunit; "twice=1" receives a second time, "unregistered=1" leaves
//                           the registration out
//   hosts                   sorts the hosts and fetches all of them
//   sort KEY FLAG           sorts only; then the count
//   fetch INDEX             one host
//   stations                the station list
//   kick UNIT MAC           removes a station
//   sleep MILLISECONDS
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "hostsort.h"
#include "netlink_user.h"
#include "wum.h"

static void* call(const char* library, const char* name) {
    void* handle = dlopen(library, RTLD_NOW);
    void* symbol = handle ? dlsym(handle, name) : NULL;
    if (!symbol) {
        fprintf(stderr, "%s\n", dlerror());
        exit(2);
    }
    return symbol;
}

#define CALL(library, name) ((__typeof__(&name))call(library, #name))

// JSON escapes for what a station's network may be called.
static void print_text(const char* text) {
    putchar('"');
    for (; *text; text++) {
        const unsigned char byte = (unsigned char)*text;
        if (byte < 0x20 || byte >= 0x7f || byte == '"' || byte == '\\')
            printf("\\u%04x", byte);
        else
            putchar(byte);
    }
    putchar('"');
}

static int replies;

static int print_reply(void* reply) {
    const char* at = reply;
    struct WanRateReply head;
    memcpy(&head, at, sizeof head);
    replies++;
    if (replies > 1) return -1;
    printf("{\"count\": %d, \"links\": [", head.count);
    for (int i = 0; i < head.count; i++) {
        struct WanRateEntry entry;
        memcpy(&entry, at + sizeof head + (size_t)i * sizeof entry, sizeof entry);
        printf("%s{\"name\": ", i ? ", " : "");
        print_text(entry.name);
        printf(", \"down\": %d, \"up\": %d}", entry.down_rate, entry.up_rate);
    }
    printf("], ");
    return -1;  // the library goes on all the same
}

// The number behind NAME= in a list of them.
static long option(const char* list, const char* name, long otherwise) {
    const size_t length = strlen(name);
    for (const char* at = list; at; at = strchr(at, ',')) {
        if (*at == ',') at++;
        if (strncmp(at, name, length) == 0 && at[length] == '=')
            return strtol(at + length + 1, NULL, 0);
    }
    return otherwise;
}

static void wan(const char* options) {
    struct WanRateRequest request;
    memset(&request, 0, sizeof request);
    request.type = (uint32_t)option(options, "type", kWanRateRequestType);
    request.length = (uint32_t)option(options, "size", sizeof request);
    request.code = (uint32_t)option(options, "code", kWanRateRequestCode);
    request.unit = (uint32_t)option(options, "requestunit", kWanRateUnit);

    int registered = -2;
    if (!option(options, "unregistered", 0))
        registered = CALL("libnetlink.so", user_netlink_regist)(
            (int)option(options, "unit", kWanRateUnit), 0);
    const int sent = CALL("libnetlink.so", netlink_send_user)(
        (int)option(options, "sendunit", kWanRateUnit), &request,
        (int)option(options, "length", sizeof request));
    replies = 0;
    const int received = CALL("libnetlink.so", netlink_receive_user)(print_reply);
    int again = -2;
    if (option(options, "twice", 0))
        again = CALL("libnetlink.so", netlink_receive_user)(print_reply);
    CALL("libnetlink.so", user_netlink_unregist)();
    printf(
        "%s\"registered\": %d, \"sent\": %d, \"received\": %d, \"again\": %d, \"replies\": %d}\n",
        replies ? "" : "{", registered, sent, received, again, replies);
}

static int print_host(int index) {
    struct HostRecord host;
    memset(&host, '?', sizeof host);
    const int result = CALL("libhostsort.so", hostsort_get_next)(&host, index);
    if (result == 0) {
        printf("{\"ip\": \"%.40s\", \"down_total\": %llu, \"up_total\": %llu, ", host.ip,
               (unsigned long long)host.down_total, (unsigned long long)host.up_total);
        printf("\"down_rate\": %lu, \"up_rate\": %lu}", (unsigned long)host.down_rate,
               (unsigned long)host.up_rate);
    }
    return result;
}

static int sort(int key, int flag) {
    return CALL("libhostsort.so", hostsort_info_sort)(key, flag);
}

static int host_count(void) {
    return CALL("libhostsort.so", hostsort_get_total_entry)();
}

static void hosts(void) {
    const int sorted = sort(1, 0);
    const int count = host_count();
    printf("{\"sorted\": %d, \"hosts\": [", sorted);
    for (int i = 1; i <= count; i++) {
        if (i > 1) printf(", ");
        if (print_host(i) != 0) exit(3);
    }
    printf("]}\n");
}

static void fetch(int index) {
    printf("{\"host\": ");
    struct HostRecord untouched;
    memset(&untouched, '?', sizeof untouched);
    struct HostRecord record = untouched;
    const int result = CALL("libhostsort.so", hostsort_get_next)(&record, index);
    if (result != 0 || print_host(index) != 0) printf("null");
    printf(", \"result\": %d, \"touched\": %d}\n", result,
           memcmp(&record, &untouched, sizeof record) != 0);
}

static void stations(void) {
    const struct StationRecord* station = CALL("libwum.so", Web_STAinfo_Get)();
    printf("[");
    for (const char* separator = ""; station; station = station->next, separator = ", ") {
        printf("%s{\"ip\": ", separator);
        print_text(station->ip);
        printf(", \"ssid\": ");
        print_text(station->ssid);
        printf(", \"flags\": %lu}", (unsigned long)station->flags);
    }
    printf("]\n");
}

static void sleep_for(long milliseconds) {
    const struct timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
    nanosleep(&time, NULL);
}

// Does one step and returns how many arguments it took.
static int step(char** words, int left) {
    if (strcmp(words[0], "wan") == 0) {
        const int has_options = left > 1 && strchr(words[1], '=') != NULL;
        wan(has_options ? words[1] : "");
        return 1 + has_options;
    }
    if (strcmp(words[0], "hosts") == 0) return hosts(), 1;
    if (strcmp(words[0], "stations") == 0) return stations(), 1;
    if (strcmp(words[0], "sleep") == 0 && left > 1) return sleep_for(atol(words[1])), 2;
    if (strcmp(words[0], "fetch") == 0 && left > 1) return fetch(atoi(words[1])), 2;
    if (strcmp(words[0], "sort") == 0 && left > 2) {
        const int sorted = sort(atoi(words[1]), atoi(words[2]));
        printf("{\"sorted\": %d, \"count\": %d}\n", sorted, host_count());
        return 3;
    }
    if (strcmp(words[0], "kick") == 0 && left > 2) {
        const int result = CALL("libwum.so", WUMWTPKickoutSta)(atoi(words[1]), words[2]);
        printf("{\"result\": %d}\n", result);
        return 3;
    }
    fprintf(stderr, "what is '%s'?\n", words[0]);
    exit(2);
}

int main(int argc, char** argv) {
    for (int at = 1; at < argc;)
        at += step(argv + at, argc - at);
    return 0;
}
