// A libwum.so that records each call and answers from the run's station list, or forwards to the
// stock library when the run has none.
//
// The run's file "stations": one station a line: IP SSID (both in hexadecimal) FLAGS.
#include "wum.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "recording.h"

#define STOCK "libwum.so"

static struct StationRecord* station_new(char* line) {
    char* ip = word_next(&line);
    char* ssid = word_next(&line);
    const char* flags = word_next(&line);
    if (!flags) return NULL;
    struct StationRecord* station = malloc(sizeof *station);
    if (!station) return NULL;
    // Bytes that nobody may rely on are made conspicuous.
    memset(station, 0xaa, sizeof *station);
    size_t count = hex_decode(ip);
    if (count < sizeof station->ip) count++;  // with the NUL, where it fits
    memcpy(station->ip, ip, count < sizeof station->ip ? count : sizeof station->ip);
    hex_decode(ssid);
    snprintf(station->ssid, sizeof station->ssid, "%s", ssid);
    station->flags = (uint32_t)strtoul(flags, NULL, 0);
    station->next = NULL;
    return station;
}

static struct StationRecord* list_read(FILE* file) {
    struct StationRecord* first = NULL;
    struct StationRecord** end = &first;
    char* line = NULL;
    size_t room = 0;
    while (getline(&line, &room, file) >= 0) {
        *end = station_new(line);
        if (!*end) break;
        end = &(*end)->next;
    }
    free(line);
    return first;
}

EXPORTED void* Web_STAinfo_Get(void) {
    void* (*stock)(void) = (void* (*)(void))stock_find(STOCK, "Web_STAinfo_Get");
    FILE* file = run_file("stations");
    void* first = NULL;
    if (call_fails("Web_STAinfo_Get")) {
        first = NULL;
    } else if (file) {
        first = list_read(file);
    } else if (stock) {
        first = stock();
    }
    if (file) fclose(file);
    struct Line line = {0};
    call_begin(&line, "Web_STAinfo_Get");
    call_end_text(&line, first ? "list" : NULL);
    return first;
}

EXPORTED int WUMWTPKickoutSta(int unit, const char* mac) {
    int (*stock)(int, const char*) =
        (int (*)(int, const char*))stock_find(STOCK, "WUMWTPKickoutSta");
    int result = stock && !call_fails("WUMWTPKickoutSta") ? stock(unit, mac) : -1;
    struct Line line = {0};
    call_begin(&line, "WUMWTPKickoutSta");
    call_add_number(&line, unit);
    call_add_text(&line, mac);
    call_end_number(&line, result);
    return result;
}
