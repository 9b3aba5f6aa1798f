// A libhostsort.so that records each call and answers from the run's host table, or forwards to
// the stock library when the run has none.
//
// The run's file "hosts": the total on the first line, then one host a line: IP (in hexadecimal)
// DOWN-TOTAL UP-TOTAL DOWN-RATE UP-RATE, or the word "fails".
#include "hostsort.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "recording.h"

#define STOCK "libhostsort.so"

// Opens the prepared table behind its first line and tells the total; null when there is none.
static FILE* table_open(int* total) {
    FILE* file = run_file("hosts");
    char line[64];
    *total = file && fgets(line, sizeof line, file) ? atoi(line) : 0;
    return file;
}

static bool table_record(FILE* file, int index, struct HostRecord* record) {
    char line[512];
    for (int i = 1; fgets(line, sizeof line, file); i++) {
        if (i != index) continue;
        char* rest = line;
        char* ip = word_next(&rest);
        const char* down_total = word_next(&rest);
        const char* up_total = word_next(&rest);
        const char* down_rate = word_next(&rest);
        const char* up_rate = word_next(&rest);
        if (!up_rate) return false;
        hex_decode(ip);
        // Bytes that nobody may rely on are made conspicuous.
        memset(record, 0xaa, sizeof *record);
        snprintf(record->ip, sizeof record->ip, "%s", ip);
        record->down_total = strtoull(down_total, NULL, 10);
        record->up_total = strtoull(up_total, NULL, 10);
        record->down_rate = (uint32_t)strtoul(down_rate, NULL, 10);
        record->up_rate = (uint32_t)strtoul(up_rate, NULL, 10);
        return true;
    }
    return false;
}

EXPORTED int hostsort_info_sort(int key, int flag) {
    int (*stock)(int, int) = (int (*)(int, int))stock_find(STOCK, "hostsort_info_sort");
    int total = 0;
    FILE* table = table_open(&total);
    int result = call_fails("hostsort_info_sort") ? -1 : table ? 0 : stock ? stock(key, flag) : -1;
    if (table) fclose(table);
    struct Line line = {0};
    call_begin(&line, "hostsort_info_sort");
    call_add_number(&line, key);
    call_add_number(&line, flag);
    call_end_number(&line, result);
    return result;
}

EXPORTED int hostsort_get_total_entry(void) {
    int (*stock)(void) = (int (*)(void))stock_find(STOCK, "hostsort_get_total_entry");
    int total = 0;
    FILE* table = table_open(&total);
    if (!table && stock) total = stock();
    if (table) fclose(table);
    if (call_fails("hostsort_get_total_entry")) total = 0;
    struct Line line = {0};
    call_begin(&line, "hostsort_get_total_entry");
    call_end_number(&line, total);
    return total;
}

EXPORTED int hostsort_get_next(void* record, int index) {
    int (*stock)(void*, int) = (int (*)(void*, int))stock_find(STOCK, "hostsort_get_next");
    int total = 0;
    FILE* table = table_open(&total);
    int result = -1;
    if (call_fails("hostsort_get_next")) {
        result = -1;
    } else if (table) {
        result = table_record(table, index, record) ? 0 : -1;
    } else if (stock) {
        result = stock(record, index);
    }
    if (table) fclose(table);
    struct Line line = {0};
    call_begin(&line, "hostsort_get_next");
    call_add_number(&line, index);
    call_end_number(&line, result);
    return result;
}
