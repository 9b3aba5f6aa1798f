// A libnetlink.so that records each call and answers from the run's WAN rates, or forwards to the
// stock library when the run has none.
//
// The run's file "wan": the entry count of the reply on the first line (the word "none": no reply
// comes), then one link a line: NAME (in hexadecimal) DOWN UP.
#include "netlink_user.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "recording.h"

#define STOCK "libnetlink.so"

enum { kMaxLinks = 4096 };

EXPORTED int user_netlink_regist(int unit, int flag) {
    int (*stock)(int, int) = (int (*)(int, int))stock_find(STOCK, "user_netlink_regist");
    FILE* file = run_file("wan");
    int result = call_fails("user_netlink_regist") ? -1 : file ? 0 : stock ? stock(unit, flag) : -1;
    if (file) fclose(file);
    struct Line line = {0};
    call_begin(&line, "user_netlink_regist");
    call_add_number(&line, unit);
    call_add_number(&line, flag);
    call_end_number(&line, result);
    return result;
}

// The request in hexadecimal, as a little-endian machine would hold it. The caller has 8 characters
// of room for each 4 bytes, and one more.
static void request_hex(char* out, const char* request, int length) {
    for (; length >= 4; length -= 4, request += 4) {
        uint32_t number;
        memcpy(&number, request, sizeof number);
        for (int byte = 0; byte < 4; byte++, out += 2) {
            snprintf(out, 3, "%02x", number >> (8 * byte) & 0xffu);
        }
    }
}

EXPORTED int netlink_send_user(int unit, void* request, int length) {
    int (*stock)(int, void*, int) =
        (int (*)(int, void*, int))stock_find(STOCK, "netlink_send_user");
    FILE* file = run_file("wan");
    int result = call_fails("netlink_send_user") ? -1
                 : file                          ? 0
                 : stock                         ? stock(unit, request, length)
                                                 : -1;
    if (file) fclose(file);
    char hex[513] = "";
    if (request && length > 0 && length <= 256) request_hex(hex, request, length);
    struct Line line = {0};
    call_begin(&line, "netlink_send_user");
    call_add_number(&line, unit);
    call_add_number(&line, length);
    call_add_text(&line, hex);
    call_end_number(&line, result);
    return result;
}

// Makes the reply from the prepared links; null when no reply is to come. The caller frees it.
static struct WanRateReply* reply_new(FILE* file) {
    char line[512];
    if (!fgets(line, sizeof line, file) || strncmp(line, "none", 4) == 0) return NULL;
    size_t room = sizeof(struct WanRateReply) + kMaxLinks * sizeof(struct WanRateEntry);
    struct WanRateReply* reply = malloc(room);
    if (!reply) return NULL;
    // Bytes that nobody may rely on are made conspicuous.
    memset(reply, 0xaa, room);
    reply->count = atoi(line);
    struct WanRateEntry* entry = (struct WanRateEntry*)(reply + 1);
    for (int i = 0; i < kMaxLinks && fgets(line, sizeof line, file); i++, entry++) {
        char* rest = line;
        char* name = word_next(&rest);
        const char* down = word_next(&rest);
        const char* up = word_next(&rest);
        if (!up) break;
        size_t size = hex_decode(name) + 1;  // with the NUL, where it fits
        memcpy(entry->name, name, size < sizeof entry->name ? size : sizeof entry->name);
        entry->down_rate = (int32_t)strtol(down, NULL, 10);
        entry->up_rate = (int32_t)strtol(up, NULL, 10);
    }
    return reply;
}

EXPORTED int netlink_receive_user(int (*callback)(void* reply)) {
    int (*stock)(int (*)(void*)) =
        (int (*)(int (*)(void*)))stock_find(STOCK, "netlink_receive_user");
    FILE* file = run_file("wan");
    int result = -1;
    struct WanRateReply* reply = NULL;
    if (call_fails("netlink_receive_user")) {
        result = -1;
    } else if (file) {
        reply = reply_new(file);
        if (reply) result = 0;
    } else if (stock) {
        result = stock(callback);
    }
    if (file) fclose(file);
    struct Line line = {0};
    call_begin(&line, "netlink_receive_user");
    call_end_number(&line, result);
    if (reply) callback(reply);
    free(reply);
    return result;
}

EXPORTED void user_netlink_unregist(void) {
    void (*stock)(void) = (void (*)(void))stock_find(STOCK, "user_netlink_unregist");
    FILE* file = run_file("wan");
    if (!file && stock) stock();
    if (file) fclose(file);
    struct Line line = {0};
    call_begin(&line, "user_netlink_unregist");
    call_end_nothing(&line);
}
